#include "drawing/WdbBlockSearch.h"

#include <algorithm>
#include <cmath>
#include <future>
#include <optional>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/thread/thread.hpp>

#include "drawing/WdbWantedBytes.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbIEventBlockDatabase.h"

namespace Korvel {
namespace {

constexpr long long NoChange = -1;
constexpr int Guesses = 6;

bool isDifferent(const std::vector<WdbByteValue>& some, const std::vector<WdbByteValue>& others) {
    return !std::equal(
        some.begin(), some.end(), others.begin(),
        [](const WdbByteValue& a, const WdbByteValue& b) { return !Korvel::isDifferent(a, b); });
}

// How many blocks to read next: one while the answer may be near, then more and more, so that the
// last ones read in vain are in proportion to those that had to be read.
class ReadAhead {
public:
    std::size_t next(std::size_t left) {
        std::size_t number = 1;
        if (m_steps++ >= FewBlocks) {
            number = m_chunk;
            m_chunk = std::min(2 * m_chunk, LargestChunk);
        }
        return std::min(number, left);
    }

private:
    static constexpr std::size_t FewBlocks = 4;
    static constexpr std::size_t LargestChunk = 2048;

    std::size_t m_steps = 0;
    std::size_t m_chunk = 16;  // pays for waking the workers up
};

struct Change {
    long long time;
    std::size_t byte;  // index in the wanted bytes
    unsigned char value;
};

// What a run of blocks holds of the wanted bytes behind some time.
struct Changes {
    std::vector<Change> list;
    std::optional<long long> latestTime;  // of any event of the blocks
};

}  // namespace

// Unpacks in parallel. The threads start when they are first needed: most questions do without.
class WdbBlockSearch::Workers {
public:
    // Cuts @p count items into one slice a worker and calls @p task(slice, first, last) for each.
    // @return how many there are.
    template <typename Task>
    void run(std::size_t count, const Task& task) {
        const std::size_t slices = slicesOf(count);
        if (slices == 1) return task(0, 0, count);
        Running running;
        for (std::size_t slice = 0; slice < slices; ++slice) {
            std::packaged_task<void()> work([&task, slice, slices, count] {
                task(slice, slice * count / slices, (slice + 1) * count / slices);
            });
            running.futures.push_back(work.get_future());
            boost::asio::post(pool(), std::move(work));
        }
        for (std::future<void>& future : running.futures)
            future.wait();
        for (std::future<void>& future : running.futures)
            future.get();
    }

    std::size_t slicesOf(std::size_t count) const {
        return std::min(std::max<std::size_t>(count, 1), m_threads);
    }

private:
    // The tasks refer to their caller's variables, so it waits for them whatever happens.
    struct Running {
        std::vector<std::future<void>> futures;
        ~Running() {
            for (std::future<void>& future : futures)
                if (future.valid()) future.wait();
        }
    };

    boost::asio::thread_pool& pool() {
        if (!m_pool) m_pool.emplace(m_threads);
        return *m_pool;
    }

    std::size_t m_threads = std::max(boost::thread::hardware_concurrency(), 1u);
    std::optional<boost::asio::thread_pool> m_pool;
};

// The blocks that hold some of the wanted bytes, seen from the time that is asked about.
class WdbBlockSearch::Bucket {
public:
    // @param first,last  The wanted bytes that the bucket is for.
    Bucket(WdbIEventBlockDatabase::IteratorPtr blocks, const WdbIEventBlockDatabase& database,
           const WdbWantedBytes& wanted, std::size_t first, std::size_t last,
           std::atomic<bool>& isDamaged)
        : m_blocks(std::move(blocks)),
          m_blockSize(database.getEventDatabaseHeader().eventBlockSize),
          m_pWanted(&wanted),
          m_first(first),
          m_last(last),
          m_blockTime(static_cast<double>(database.getLatestTime()) /
                      static_cast<double>(std::max<std::size_t>(getBlockCount(), 1))),
          m_block(m_blockSize, 0),
          m_pIsDamaged(&isDamaged) {
        noteGaps();
    }

    void moveTo(long long time);
    void takeValues(WdbByteStates& states, Workers& workers);

    // Number of blocks up to the last one that starts at or before the time, with it.
    std::size_t getBlocksUpToTime() const { return m_upTo; }
    std::size_t getBlockCount() const { return m_blocks->getBlockCount(); }

    Changes takeChangesFrom(std::size_t& next, std::size_t most, Workers& workers) const;

private:
    std::vector<WdbStoredBlock> blocksBefore(std::size_t& end, std::size_t most,
                                             const WdbByteStates& states) const;
    std::vector<WdbStoredBlock> blocksFrom(std::size_t& next, std::size_t most) const;
    bool load(std::size_t index);
    void loadStored(const WdbStoredBlock& stored, WdbEventBlock& block) const;
    void noteGaps() const;
    std::optional<long long> claimedStart(std::size_t index) const;
    std::size_t firstLaterBlock(std::size_t begin, std::size_t end) const;
    std::size_t countMissing(const WdbByteStates& states) const {
        return m_pWanted->countMissing(states, m_first, m_last);
    }
    void takeLastWrites(const WdbEventBlock& block, WdbByteStates& states) const;
    void takeChanges(const WdbEventBlock& block, WdbByteStates& seen, Changes& changes) const;

    WdbIEventBlockDatabase::IteratorPtr m_blocks;
    unsigned int m_blockSize;  // bytes of an image
    const WdbWantedBytes* m_pWanted;
    std::size_t m_first;  // of the wanted bytes
    std::size_t m_last;   // behind the last one
    double m_blockTime;   // from one block's start to the next one's on the average; 0: not known
    long long m_time = 0;
    std::size_t m_upTo = 0;
    WdbEventBlock m_block;            // the one loaded last; in the end the last up to the time
    std::atomic<bool>* m_pIsDamaged;  // of the search
    std::optional<std::size_t> m_loaded;
    bool m_isTree = false;
    bool m_isReadWhole = false;  // all those up to the time were looked at for values
};

// Finds the last block that starts at or before the time.
//
// A first time that was only peeked at is a claim. So the blocks on both sides of the place where
// the bisection ended are unpacked, which proves them; those that cannot be are passed over. Where
// that shows the claims to have misled the bisection, it is repeated with what was proved. A tree
// knows the times of its blocks without.
void WdbBlockSearch::Bucket::moveTo(long long time) {
    m_time = time;
    if (const std::optional<std::size_t> known = m_blocks->countUpTo(time)) {
        m_upTo = *known;
        m_isTree = true;
        return;
    }
    std::size_t low = 0;  // the block before this one starts at or before the time, if there is one
    std::size_t high = getBlockCount();  // this one later
    for (;;) {
        const std::size_t middle = firstLaterBlock(low, high);
        std::size_t above = middle;
        while (above < high && !load(above))
            ++above;
        if (above < high && m_block.getStartTime() <= m_time) {
            low = above + 1;
            continue;
        }
        m_upTo = middle;
        while (m_upTo > low && !load(m_upTo - 1))
            --m_upTo;
        if (m_upTo == low || m_block.getStartTime() <= m_time) break;
        high = m_upTo - 1;
    }
    if (m_upTo > 0) load(m_upTo - 1);
}

// The values at the time, for those bytes that are not known yet.
void WdbBlockSearch::Bucket::takeValues(WdbByteStates& states, Workers& workers) {
    if (m_upTo == 0 || m_isReadWhole) return;
    ReadAhead ahead;
    std::size_t end = m_upTo;
    if (m_loaded == end - 1) {
        takeLastWrites(m_block, states);
        --end;
        ahead.next(1);
    }
    while (end > 0 && countMissing(states) > 0) {
        const std::vector<WdbStoredBlock> stored = blocksBefore(end, ahead.next(end), states);
        std::vector<WdbByteStates> found(workers.slicesOf(stored.size()), states);
        workers.run(stored.size(), [&](std::size_t slice, std::size_t first, std::size_t last) {
            WdbEventBlock block(m_blockSize, 0);
            for (; first < last && countMissing(found[slice]) > 0; ++first) {
                loadStored(stored[first], block);
                takeLastWrites(block, found[slice]);
            }
        });
        // The first slice has the latest blocks, which win.
        for (const WdbByteStates& slice : found) {
            for (std::size_t i = m_first; i < m_last; ++i)
                if (!states[i].isKnown) states[i] = slice[i];
        }
    }
    m_isReadWhole = end == 0 && !m_isTree;  // a tree passes over blocks
}

// What the next blocks change after the time, at most so many of those that may change anything.
// @p next moves behind them; to the number of all blocks where no more may.
Changes WdbBlockSearch::Bucket::takeChangesFrom(std::size_t& next, std::size_t most,
                                                Workers& workers) const {
    const std::vector<WdbStoredBlock> stored = blocksFrom(next, most);
    std::vector<Changes> found(workers.slicesOf(stored.size()));
    workers.run(stored.size(), [&](std::size_t slice, std::size_t first, std::size_t last) {
        WdbEventBlock block(m_blockSize, 0);
        WdbByteStates seen(m_pWanted->size());
        for (std::size_t i = first; i < last; ++i) {
            loadStored(stored[i], block);
            takeChanges(block, seen, found[slice]);
        }
    });
    Changes all = std::move(found[0]);
    for (std::size_t slice = 1; slice < found.size(); ++slice) {
        all.list.insert(all.list.end(), found[slice].list.begin(), found[slice].list.end());
        all.latestTime = std::max(all.latestTime, found[slice].latestTime);
    }
    return all;
}

// Up to so many blocks before @p end that may hold what is missing, the last one first. @p end
// moves before them; to 0 where there are no more.
std::vector<WdbStoredBlock> WdbBlockSearch::Bucket::blocksBefore(
    std::size_t& end, std::size_t most, const WdbByteStates& states) const {
    m_blocks->lookFor(m_pWanted->missingAddresses(states, m_first, m_last));
    std::vector<WdbStoredBlock> stored;
    while (stored.size() < most) {
        const std::optional<std::size_t> index = m_blocks->findBefore(end);
        end = index.value_or(0);
        if (!index) break;
        stored.push_back(m_blocks->getStoredBlock());
    }
    noteGaps();
    return stored;
}

// Up to so many blocks from @p next on that may hold something wanted. @p next moves behind them.
std::vector<WdbStoredBlock> WdbBlockSearch::Bucket::blocksFrom(std::size_t& next,
                                                               std::size_t most) const {
    const std::vector<long long>& all = m_pWanted->addresses();
    m_blocks->lookFor({all.begin() + static_cast<std::ptrdiff_t>(m_first),
                       all.begin() + static_cast<std::ptrdiff_t>(m_last)});
    std::vector<WdbStoredBlock> stored;
    while (stored.size() < most) {
        const std::optional<std::size_t> index = m_blocks->findFrom(next);
        next = index ? *index + 1 : getBlockCount();
        if (!index) break;
        stored.push_back(m_blocks->getStoredBlock());
    }
    noteGaps();
    return stored;
}

void WdbBlockSearch::Bucket::noteGaps() const {
    if (m_blocks->isCut()) *m_pIsDamaged = true;
}

// False for a block without events, which is what a damaged one is.
bool WdbBlockSearch::Bucket::load(std::size_t index) {
    if (m_loaded != index) {
        m_blocks->moveTo(index);
        loadStored(m_blocks->getStoredBlock(), m_block);
        m_loaded = index;
    }
    return !m_block.isEmpty();
}

void WdbBlockSearch::Bucket::loadStored(const WdbStoredBlock& stored, WdbEventBlock& block) const {
    m_blocks->loadStoredBlock(stored, block);
    if (block.isEmpty()) *m_pIsDamaged = true;
}

// When a block claims to start; nothing where it cannot be read.
std::optional<long long> WdbBlockSearch::Bucket::claimedStart(std::size_t index) const {
    m_blocks->moveTo(index);
    WdbEventBlockHeader header;
    if (!m_blocks->peekStoredBlock(m_blocks->getStoredBlock(), header)) return {};
    return header.startTime;
}

// The first of the blocks that claims to start after the time; @p end when none does. One that
// cannot be read does not.
//
// The blocks of a simulation that runs steadily last equally long. So a few guesses, each made from
// how far the one before missed, usually come down to the place; where they do not, halving does.
std::size_t WdbBlockSearch::Bucket::firstLaterBlock(std::size_t begin, std::size_t end) const {
    const auto blocksIn = [this](double time, std::size_t most) {
        const double blocks = std::abs(time) / m_blockTime;
        return blocks < static_cast<double>(most) ? static_cast<std::size_t>(blocks) : most;
    };
    int guesses = m_blockTime > 0 ? Guesses : 0;
    std::size_t probe = guesses > 0 ? blocksIn(static_cast<double>(m_time), end) : begin;
    while (begin < end) {
        const std::size_t middle = begin + (end - begin) / 2;
        probe = guesses > 0 ? std::clamp(probe, begin, end - 1) : middle;
        const std::optional<long long> start = claimedStart(probe);
        const bool isLater = start && *start > m_time;
        (isLater ? end : begin) = isLater ? probe : probe + 1;
        guesses = start ? guesses - 1 : 0;
        if (guesses <= 0 || begin >= end) continue;
        const double missedBy = static_cast<double>(m_time) - static_cast<double>(*start);
        const std::size_t step = blocksIn(missedBy, end - begin - 1);
        probe = isLater ? end - 1 - step : begin + step;
    }
    return begin;
}

// For the bytes not known yet, the last write of the block at or before the time.
void WdbBlockSearch::Bucket::takeLastWrites(const WdbEventBlock& block,
                                            WdbByteStates& states) const {
    std::size_t missing = countMissing(states);
    WdbEventBlock::Iterator it = block.getIterator();
    for (int index = static_cast<int>(block.size()); index-- > 0 && missing > 0;) {
        it.setIndex(index);
        const WdbEvent event = *it;
        if (event.getTime() > m_time) continue;
        m_pWanted->forEachIn(event, m_first, m_last, [&](std::size_t byte, unsigned char value) {
            if (states[byte].isKnown) return;
            states[byte] = {true, value};
            if (m_pWanted->isNeeded(byte)) --missing;
        });
    }
}

// A byte that is written with what it holds already does not count.
void WdbBlockSearch::Bucket::takeChanges(const WdbEventBlock& block, WdbByteStates& seen,
                                         Changes& changes) const {
    for (WdbEventBlock::Iterator it = block.getIterator(); it; ++it) {
        const WdbEvent event = *it;
        const long long time = event.getTime();
        changes.latestTime = std::max(changes.latestTime, std::optional(time));
        if (time <= m_time) continue;
        m_pWanted->forEachIn(event, m_first, m_last, [&](std::size_t byte, unsigned char value) {
            if (seen[byte].isKnown && seen[byte].value == value) return;
            seen[byte] = {true, value};
            changes.list.push_back({time, byte, value});
        });
    }
}

// The changes of one bucket after the time, read as far as they are asked for.
class WdbBlockSearch::Stream {
public:
    Stream(const Bucket& bucket, long long time)
        : m_pBucket(&bucket),
          m_nextBlock(std::max<std::size_t>(bucket.getBlocksUpToTime(), 1) - 1),
          m_reached(time) {}

    // The one to go on with; null when all are at their end.
    static Stream* earliest(std::vector<Stream>& streams) {
        const auto it = std::min_element(streams.begin(), streams.end(),
                                         [](const Stream& one, const Stream& other) {
                                             return std::make_pair(one.isAtEnd(), one.time()) <
                                                    std::make_pair(other.isAtEnd(), other.time());
                                         });
        return it == streams.end() || it->isAtEnd() ? nullptr : &*it;
    }

    bool isAtEnd() const { return !hasChange() && m_nextBlock >= m_pBucket->getBlockCount(); }
    bool hasChange() const { return m_current < m_changes.size(); }

    // Before any change that is still to come; of the current change, where there is one.
    long long time() const { return hasChange() ? m_changes[m_current].time : m_reached; }

    Change takeChange() { return m_changes[m_current++]; }

    void readOn(Workers& workers) {
        const std::size_t most = m_ahead.next(m_pBucket->getBlockCount() - m_nextBlock);
        Changes changes = m_pBucket->takeChangesFrom(m_nextBlock, most, workers);
        m_changes = std::move(changes.list);
        m_current = 0;
        m_reached = std::max(m_reached, changes.latestTime.value_or(m_reached));
    }

private:
    const Bucket* m_pBucket;
    std::size_t m_nextBlock;
    long long m_reached;  // up to where the blocks were read; more of that time may follow
    ReadAhead m_ahead;
    std::vector<Change> m_changes;  // those read last
    std::size_t m_current = 0;
};

WdbBlockSearch::WdbBlockSearch(const WdbIEventBlockDatabase& database)
    : m_pDatabase(&database), m_workers(std::make_unique<Workers>()) {}

WdbBlockSearch::~WdbBlockSearch() = default;

void WdbBlockSearch::getValues(long long time, const std::vector<WdbScalar>& scalars,
                               std::vector<WdbByteValue>& values) {
    WdbWantedBytes wanted(scalars);
    std::vector<Bucket> buckets = findBuckets(time, wanted);
    values = wanted.valuesOf(takeValues(buckets, wanted));
}

long long WdbBlockSearch::getNextChange(long long time, const std::vector<WdbScalar>& scalars) {
    WdbWantedBytes wanted(scalars);
    std::vector<Bucket> buckets = findBuckets(time, wanted);
    WdbByteStates states = takeValues(buckets, wanted);
    std::vector<Stream> streams;
    for (const Bucket& bucket : buckets)
        streams.emplace_back(bucket, time);
    const std::vector<WdbByteValue> before = wanted.valuesOf(states);
    long long changing = time;  // whose changes are being taken
    for (;;) {
        Stream* const next = Stream::earliest(streams);
        if (changing != time && (next == nullptr || next->time() > changing)) {
            if (isDifferent(wanted.valuesOf(states), before)) return changing;
            changing = time;
        }
        if (next == nullptr) return NoChange;
        if (!next->hasChange()) {
            next->readOn(*m_workers);
            continue;
        }
        const Change change = next->takeChange();
        states[change.byte] = {true, change.value};
        if (changing == time) changing = change.time;
    }
}

// The buckets that hold the wanted bytes, at the time.
std::vector<WdbBlockSearch::Bucket> WdbBlockSearch::findBuckets(
    long long time, const WdbWantedBytes& wanted) const {
    const WdbEventDatabaseHeader& header = m_pDatabase->getEventDatabaseHeader();
    const bool isOne = header.databaseTypeId == WdbEventBlockDatabaseFactory::SingleBucket;
    const auto perBucket = static_cast<long long>(header.addressesPerBucket);
    const auto share = [&](long long one, long long other) {
        return isOne || (one / perBucket == other / perBucket && (one < 0) == (other < 0));
    };
    std::vector<Bucket> buckets;
    const std::vector<long long>& all = wanted.addresses();
    for (std::size_t first = 0, last = 0; first < all.size(); first = last) {
        while (last < all.size() && share(all[first], all[last]))
            ++last;
        const std::vector<long long> addresses(all.begin() + static_cast<std::ptrdiff_t>(first),
                                               all.begin() + static_cast<std::ptrdiff_t>(last));
        for (auto& blocks : m_pDatabase->getEventBlockDatabaseIterator(addresses)) {
            buckets.emplace_back(std::move(blocks), *m_pDatabase, wanted, first, last, m_isDamaged);
            buckets.back().moveTo(time);
        }
    }
    return buckets;
}

WdbByteStates WdbBlockSearch::takeValues(std::vector<Bucket>& buckets, WdbWantedBytes& wanted) {
    WdbByteStates states(wanted.size());
    do {
        for (Bucket& bucket : buckets)
            bucket.takeValues(states, *m_workers);
    } while (wanted.needPairs(states));
    return states;
}

}  // namespace Korvel
