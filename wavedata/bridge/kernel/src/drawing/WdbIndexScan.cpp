#include "drawing/WdbIndexScan.h"

#include <algorithm>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/chrono.hpp>

#include "events/WdbEventBlock.h"

namespace Korvel {
namespace {

// How often whoever waits for a scan is told of its progress, and may cancel it.
const boost::chrono::milliseconds ReportInterval(50);

// Goes through the events of one bucket, block by block.
class EventWalk {
public:
    EventWalk(WdbIndexScan::IteratorPtr blocks, unsigned int blockSize)
        : m_blocks(std::move(blocks)), m_block(blockSize, 0), m_event(m_block.getIterator()) {
        loadUntilEvent();
    }

    bool isAtEnd() const { return !m_event; }
    WdbEvent event() const { return *m_event; }

    void next() {
        ++m_event;
        loadUntilEvent();
    }

    /// Number of blocks loaded so far.
    std::size_t getLoads() const { return m_loads; }

    /// Whether one of them could not be read.
    bool isDamaged() const { return m_isDamaged; }

private:
    void loadUntilEvent() {
        for (; !m_event && *m_blocks; ++*m_blocks) {
            ++m_loads;
            m_blocks->getEventBlock(m_block);
            m_isDamaged = m_isDamaged || m_block.isEmpty();
            m_event = m_block.getIterator();
        }
    }

    WdbIndexScan::IteratorPtr m_blocks;
    WdbEventBlock m_block;
    WdbEventBlock::Iterator m_event;
    std::size_t m_loads = 0;
    bool m_isDamaged = false;
};

}  // namespace

void WdbIndexScan::add(const std::vector<IteratorPtr>& buckets, WdbScalarCells& cells) {
    Lane& lane = m_lanes.emplace_back();
    lane.buckets = buckets;
    lane.cells = &cells;
    for (const IteratorPtr& bucket : buckets) {
        m_blockCount += bucket->getBlockCount();
        if (bucket->isCut()) m_isDamaged = true;
    }
}

bool WdbIndexScan::run(unsigned int threads, const Progress& progress) {
    if (progress && !progress(0)) return false;
    boost::asio::thread_pool pool(threads);
    for (unsigned int i = 0; i < threads; ++i)
        boost::asio::post(pool, [this, threads] { work(mostOutstanding(threads)); });
    const bool isDone = reportUntilDone(threads, progress);
    pool.join();
    if (m_failure) std::rethrow_exception(m_failure);
    return isDone;
}

// A block's size is a claim of the file. What lies unpacked is bounded in bytes too; every thread
// may have a piece at any time.
std::size_t WdbIndexScan::mostOutstanding(std::size_t threads) const {
    const std::size_t pieceSize = PieceBlocks * std::size_t{m_blockSize};
    return std::max(threads, std::min(PiecesAhead * threads, MostBytesAhead / pieceSize));
}

// False when progress cancelled the scan.
bool WdbIndexScan::reportUntilDone(std::size_t threads, const Progress& progress) {
    bool goesOn = true;
    Lock lock(m_mutex);
    while (m_threadsDone < threads) {
        m_done.wait_for(lock, ReportInterval);
        if (!progress || !goesOn || m_blockCount == 0) continue;
        const double fraction =
            std::min(1.0, static_cast<double>(m_blocksDone) / static_cast<double>(m_blockCount));
        lock.unlock();
        try {
            goesOn = progress(fraction);
        } catch (...) {
            stop(std::current_exception());
            goesOn = false;
        }
        lock.lock();
        if (goesOn) continue;
        m_isStopped = true;
        m_applied.notify_all();
    }
    return goesOn;
}

void WdbIndexScan::work(std::size_t mostOutstanding) {
    try {
        Piece piece;
        while (takePiece(piece, mostOutstanding)) {
            if (piece.lane->buckets.size() > 1) {
                scanMerged(*piece.lane);
                deliver(piece, {});
                continue;
            }
            Changes changes;
            unpack(piece, changes);
            deliver(piece, std::move(changes));
        }
    } catch (...) {
        stop(std::current_exception());
    }
    const Lock lock(m_mutex);
    ++m_threadsDone;
    m_done.notify_one();
}

void WdbIndexScan::stop(std::exception_ptr reason) {
    const Lock lock(m_mutex);
    if (!m_failure) m_failure = std::move(reason);
    m_isStopped = true;
    m_applied.notify_all();
}

// Waits while too much lies unpacked. Every piece that is outstanding is being worked at or waits
// for one that is, so that the wait ends.
bool WdbIndexScan::takePiece(Piece& piece, std::size_t mostOutstanding) {
    Lock lock(m_mutex);
    while (m_outstanding >= mostOutstanding && !m_isStopped)
        m_applied.wait(lock);
    while (!m_isStopped && m_currentLane < m_lanes.size()) {
        Lane& lane = m_lanes[m_currentLane];
        piece.lane = &lane;
        piece.number = lane.taken;
        piece.blocks.clear();
        if (lane.buckets.size() > 1) {
            ++m_currentLane;  // one piece, scanned by one thread
        } else {
            WdbIEventBlockIterator& block = *lane.buckets.front();
            for (; block && piece.blocks.size() < PieceBlocks; ++block)
                piece.blocks.push_back(block.getStoredBlock());
            if (!block) ++m_currentLane;
            if (piece.blocks.empty()) continue;
        }
        ++lane.taken;
        ++m_outstanding;
        return true;
    }
    return false;
}

void WdbIndexScan::unpack(const Piece& piece, Changes& changes) {
    WdbEventBlock block(m_blockSize, 0);
    for (const WdbStoredBlock& stored : piece.blocks) {
        piece.lane->buckets.front()->loadStoredBlock(stored, block);
        if (block.isEmpty()) m_isDamaged = true;  // none is stored without events
        piece.lane->cells->collect(block, changes);
    }
}

void WdbIndexScan::deliver(const Piece& piece, Changes changes) {
    Lane& lane = *piece.lane;
    Lock lock(m_mutex);
    m_blocksDone += piece.blocks.size();
    lane.waiting.emplace(piece.number, std::move(changes));
    if (lane.isApplying) return;
    lane.isApplying = true;
    for (auto next = lane.waiting.begin();
         next != lane.waiting.end() && next->first == lane.applied && !m_isStopped;
         next = lane.waiting.begin()) {
        const Changes current = std::move(next->second);
        lane.waiting.erase(next);
        lock.unlock();
        for (const WdbScalarCells::Change& change : current)
            lane.cells->apply(change);
        lock.lock();
        ++lane.applied;
        --m_outstanding;
        m_applied.notify_one();
    }
    lane.isApplying = false;
}

// Events of several buckets in the order of their times: a word pair that lies across a bucket's
// end is written by two events.
void WdbIndexScan::scanMerged(Lane& lane) {
    std::deque<EventWalk> walks;
    for (const IteratorPtr& bucket : lane.buckets)
        walks.emplace_back(bucket, m_blockSize);
    for (;;) {
        EventWalk* earliest = nullptr;
        for (EventWalk& walk : walks) {
            if (walk.isAtEnd()) continue;
            if (earliest == nullptr || walk.event().getTime() < earliest->event().getTime())
                earliest = &walk;
        }
        if (earliest == nullptr) break;
        const WdbEvent event = earliest->event();
        lane.cells->applyEvent(event.getTime(), event.getStartAddress(), event.getValuelength(),
                               reinterpret_cast<const unsigned char*>(event.getValue()));
        const std::size_t loads = earliest->getLoads();
        earliest->next();
        if (earliest->getLoads() == loads) continue;
        const Lock lock(m_mutex);
        m_blocksDone += earliest->getLoads() - loads;
        if (m_isStopped) return;
    }
    for (const EventWalk& walk : walks)
        if (walk.isDamaged()) m_isDamaged = true;
}

}  // namespace Korvel
