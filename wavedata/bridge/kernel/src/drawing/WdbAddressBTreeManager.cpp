#include "korvel/WdbAddressBTreeManager.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <system_error>
#include <tuple>
#include <utility>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/thread.hpp>

#include "drawing/WdbBlockSearch.h"
#include "drawing/WdbIndexScan.h"
#include "drawing/WdbScalarCells.h"
#include "drawing/WdbWordPair.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbIEventBlockDatabase.h"
#include "events/WdbLiveEvent.h"
#include "indexes/WdbIndexPages.h"
#include "korvel/BTreeEventDispatcher.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbAddressBTreeManager";

std::shared_ptr<WdbIndexPages> makePages(const std::string& path) {
    try {
        return path.empty() ? std::make_shared<WdbIndexPages>()
                            : std::make_shared<WdbIndexPages>(path);
    } catch (const std::system_error& error) {
        const std::string reason = error.code() ? error.code().message() : "unknown reason";
        throwOpenException(ClassFile, __LINE__,
                           "Cannot create temporary waveform data file " + path +
                               " for the following reason: " + reason);
    }
}

struct ScalarOrder {
    bool operator()(const WdbScalar& one, const WdbScalar& two) const {
        return std::tie(one.address, one.bit) < std::tie(two.address, two.bit);
    }
};

}  // namespace

class WdbAddressBTreeManager::Impl {
public:
    using Tree = std::unique_ptr<WdbScalarBTree>;
    using Trees = std::map<WdbScalar, Tree, ScalarOrder>;
    using Lock = boost::unique_lock<boost::mutex>;
    using RecursiveLock = boost::unique_lock<boost::recursive_mutex>;

    std::vector<WdbScalar> findMissing(const std::vector<WdbScalar>& scalars);
    bool makeMissing(const std::vector<WdbScalar>& missing, const Progress& progress);
    bool scan(const std::vector<WdbScalarBTree*>& toFill, const Progress& progress);
    void publish(Trees made);
    Lock lockDatabase() const { return writeLock != nullptr ? Lock(*writeLock) : Lock(); }
    void setCells(const std::vector<WdbScalarBTree*>& ofTrees);
    void applyBuffer();
    template <typename Question>
    void ask(Question&& question);

    // Order of locks: requestMutex, the database's write lock, mutex, bufferMutex.
    boost::mutex requestMutex;  // one request at a time reads the database
    mutable boost::recursive_mutex mutex;
    boost::mutex bufferMutex;  // held for moments, so that who records does not wait for who draws

    // Of events since the last mark; more than that is applied without one.
    static constexpr std::size_t LargestBuffer = std::size_t{64} << 20;

    static constexpr long long NoTime = std::numeric_limits<long long>::min();

    // Under requestMutex; pages under mutex too where they are replaced.
    WdbIEventBlockDatabase* database = nullptr;
    boost::mutex* writeLock = nullptr;
    std::unique_ptr<WdbBlockSearch> search;  // null until it is used
    std::string path;                        // of the temporary file; empty: there is none
    std::shared_ptr<WdbIndexPages> pages = std::make_shared<WdbIndexPages>();

    // Of all trees. Replaced under mutex and bufferMutex; either will do to look at the addresses,
    // mutex is for the rest.
    WdbScalarCells cells{{}};

    // Under bufferMutex.
    std::vector<char> buffer;  // events as they travel, back to back

    // Under mutex.
    Trees trees;
    std::vector<char> spare;         // what the buffer was before; keeps its memory
    long long appliedTime = NoTime;  // of the newest event that came from the buffer
    long long toldTime = NoTime;     // the same when listeners were told last
    std::atomic<bool> hasTrees{false};
    std::atomic<bool> isDamaged{false};

    std::unique_ptr<BTreeEventDispatcher> dispatcher;  // null until it is used; goes first
};

WdbAddressBTreeManager::WdbAddressBTreeManager() : m_impl(std::make_unique<Impl>()) {}

WdbAddressBTreeManager::~WdbAddressBTreeManager() {
    // Its threads read the trees, and a listener in its last call may ask for it.
    if (m_impl->dispatcher) m_impl->dispatcher->unregisterAll();
}

boost::recursive_mutex& WdbAddressBTreeManager::getMutex() const {
    return m_impl->mutex;
}

// --- Requests. ---

std::vector<WdbScalarBTree*> WdbAddressBTreeManager::getBTrees(
    const std::vector<WdbScalar>& scalars, const Progress& progress) {
    const Impl::Lock request(m_impl->requestMutex);
    const std::vector<WdbScalar> missing = m_impl->findMissing(scalars);
    std::vector<WdbScalarBTree*> found;
    if (!missing.empty() && !m_impl->makeMissing(missing, progress)) return found;
    const Impl::RecursiveLock lock(m_impl->mutex);
    found.reserve(scalars.size());
    for (const WdbScalar& scalar : scalars)
        found.push_back(m_impl->trees.at(inItsPair(scalar)).get());
    return found;
}

std::vector<WdbScalar> WdbAddressBTreeManager::Impl::findMissing(
    const std::vector<WdbScalar>& scalars) {
    const bool isRescanning = std::getenv("WAVEDATA_RESCAN") != nullptr;
    const RecursiveLock lock(mutex);
    std::vector<WdbScalar> missing;
    for (const WdbScalar& asked : scalars) {
        const WdbScalar scalar = inItsPair(asked);
        const auto tree = trees.find(scalar);
        if (tree == trees.end() || (isRescanning && tree->second->isEmpty()))
            missing.push_back(scalar);
    }
    return missing;
}

bool WdbAddressBTreeManager::Impl::makeMissing(const std::vector<WdbScalar>& missing,
                                               const Progress& progress) {
    Trees made;
    for (const WdbScalar& scalar : missing) {
        Tree& tree = made[scalar];
        if (!tree) tree = std::make_unique<WdbScalarBTree>(scalar.address, scalar.bit, pages);
    }
    std::vector<WdbScalarBTree*> toFill;
    toFill.reserve(made.size());
    for (const auto& [scalar, tree] : made)
        toFill.push_back(tree.get());
    // Nothing is recorded between the scan and the moment from which the new trees are told of
    // events. What is in the buffer is in the database too: the new trees are to see it once.
    const Lock write = lockDatabase();
    {
        const RecursiveLock lock(mutex);
        applyBuffer();
    }
    if (database != nullptr && !scan(toFill, progress)) return false;
    publish(std::move(made));
    return true;
}

bool WdbAddressBTreeManager::Impl::scan(const std::vector<WdbScalarBTree*>& toFill,
                                        const Progress& progress) {
    const WdbEventDatabaseHeader& header = database->getEventDatabaseHeader();
    const bool isOneBucket = header.databaseTypeId == WdbEventBlockDatabaseFactory::SingleBucket;
    const auto perBucket = static_cast<long long>(header.addressesPerBucket);
    std::vector<WdbScalarBTree*> whole;
    std::map<long long, std::vector<WdbScalarBTree*>> across;  // by their pair
    for (WdbScalarBTree* tree : toFill) {
        const long long first = tree->getAddress();
        const long long last =
            first + (tree->getBit() == WdbScalarBTree::WholeByte ? 1 : PairSize) - 1;
        if (isOneBucket || first / perBucket == last / perBucket) {
            whole.push_back(tree);
        } else {
            across[first].push_back(tree);
        }
    }
    WdbIndexScan scan(header.eventBlockSize);
    std::deque<WdbScalarCells> cells;
    std::vector<WdbIndexScan::IteratorPtr> buckets;
    std::vector<std::vector<WdbScalarBTree*>> groups;
    if (!whole.empty()) database->getEventBlockDatabaseIterator(whole, buckets, groups);
    for (std::size_t i = 0; i < buckets.size(); ++i)
        scan.add({buckets[i]}, cells.emplace_back(groups[i]));
    // A word pair across the end of a bucket needs the blocks of both.
    for (const auto& [first, trees] : across) {
        const std::vector<long long> ends{first, first + PairSize - 1};
        buckets = database->getEventBlockDatabaseIterator(ends);
        if (!buckets.empty()) scan.add(buckets, cells.emplace_back(trees));
    }
    const bool isDone = scan.run(std::max(1U, boost::thread::hardware_concurrency()), progress);
    if (scan.isDamaged()) isDamaged = true;
    return isDone;
}

void WdbAddressBTreeManager::Impl::publish(Trees made) {
    const RecursiveLock lock(mutex);
    for (auto& [scalar, tree] : made) {
        const auto [place, isNew] = trees.try_emplace(scalar);
        if (isNew) {
            place->second = std::move(tree);
        } else {
            *place->second = std::move(*tree);  // the viewer has its address
        }
    }
    std::vector<WdbScalarBTree*> all;
    all.reserve(trees.size());
    for (const auto& [scalar, tree] : trees)
        all.push_back(tree.get());
    setCells(all);
    hasTrees = true;
}

// With the mutex held.
void WdbAddressBTreeManager::Impl::setCells(const std::vector<WdbScalarBTree*>& ofTrees) {
    WdbScalarCells next(ofTrees);
    const Lock lock(bufferMutex);
    std::swap(cells, next);
}

// Asks the event blocks themselves. There is a database.
template <typename Question>
void WdbAddressBTreeManager::Impl::ask(Question&& question) {
    const Lock write = lockDatabase();
    if (!search) search = std::make_unique<WdbBlockSearch>(*database);
    question(*search);
    if (search->isDamaged()) isDamaged = true;
}

void WdbAddressBTreeManager::getValues(long long time, const std::vector<WdbScalar>& scalars,
                                       std::vector<WdbByteValue>& values) {
    const Impl::Lock request(m_impl->requestMutex);
    values.assign(scalars.size(), {});
    if (m_impl->database == nullptr) return;
    m_impl->ask([&](WdbBlockSearch& search) { search.getValues(time, scalars, values); });
}

long long WdbAddressBTreeManager::getNextChange(long long time,
                                                const std::vector<WdbScalar>& scalars) {
    const Impl::Lock request(m_impl->requestMutex);
    if (m_impl->database == nullptr) return -1;
    long long change = -1;
    m_impl->ask([&](WdbBlockSearch& search) { change = search.getNextChange(time, scalars); });
    return change;
}

bool WdbAddressBTreeManager::hasMetDamage() const {
    return m_impl->isDamaged;
}

// --- Events as they are recorded. ---

bool WdbAddressBTreeManager::hasAtLeastOneBtree() const {
    return m_impl->hasTrees;
}

bool WdbAddressBTreeManager::addEventDirect(const WdbLiveEvent* event) {
    const Impl::RecursiveLock lock(m_impl->mutex);
    if (!m_impl->cells.concerns(event->m_address, event->m_valueLength)) return false;
    m_impl->cells.applyEvent(event->m_time, event->m_address, event->m_valueLength,
                             event->getValue());
    return true;
}

bool WdbAddressBTreeManager::addEventBuffered(const WdbLiveEvent* event) {
    Impl::Lock lock(m_impl->bufferMutex);
    if (!m_impl->cells.concerns(event->m_address, event->m_valueLength)) return false;
    std::vector<char>& buffer = m_impl->buffer;
    const char* bytes = reinterpret_cast<const char*>(event);
    buffer.insert(buffer.end(), bytes, bytes + WdbLiveEvent::HeaderSize + event->m_valueLength);
    const bool isFull = buffer.size() > Impl::LargestBuffer;
    lock.unlock();
    if (isFull) {
        const Impl::RecursiveLock drawing(m_impl->mutex);
        m_impl->applyBuffer();
    }
    return true;
}

void WdbAddressBTreeManager::flushEvents() {
    BTreeEventDispatcher* dispatcher = nullptr;
    long long latest = 0;
    {
        const Impl::RecursiveLock lock(m_impl->mutex);
        m_impl->applyBuffer();
        // They may have been applied before, by a request for trees or because there were many.
        if (m_impl->appliedTime <= m_impl->toldTime) return;
        latest = m_impl->toldTime = m_impl->appliedTime;
        dispatcher = m_impl->dispatcher.get();
    }
    if (dispatcher != nullptr) dispatcher->notify(latest);
}

void WdbAddressBTreeManager::Impl::applyBuffer() {
    // Taken away first: events that a full disk keeps out of the trees are not tried again.
    spare.clear();
    {
        const Lock lock(bufferMutex);
        spare.swap(buffer);
    }
    for (std::size_t at = 0; at < spare.size();) {
        long long time = 0;
        long long address = 0;
        unsigned int length = 0;
        std::memcpy(&time, &spare[at], sizeof(time));
        std::memcpy(&address, &spare[at + 8], sizeof(address));
        std::memcpy(&length, &spare[at + 16], sizeof(length));
        at += WdbLiveEvent::HeaderSize;
        cells.applyEvent(time, address, length,
                         reinterpret_cast<const unsigned char*>(spare.data() + at));
        appliedTime = std::max(appliedTime, time);
        at += length;
    }
}

void WdbAddressBTreeManager::markTime(long long time) {
    BTreeEventDispatcher* dispatcher = nullptr;
    {
        const Impl::RecursiveLock lock(m_impl->mutex);
        dispatcher = m_impl->dispatcher.get();
    }
    if (dispatcher != nullptr) dispatcher->notify(time);
}

BTreeEventDispatcher& WdbAddressBTreeManager::getEventDispatcher() {
    const Impl::RecursiveLock lock(m_impl->mutex);
    if (!m_impl->dispatcher) m_impl->dispatcher = std::make_unique<BTreeEventDispatcher>(*this);
    return *m_impl->dispatcher;
}

// --- What the indexes rest on. ---

void WdbAddressBTreeManager::createDrawingBTreeFile(const std::string& path) {
    const Impl::Lock request(m_impl->requestMutex);
    std::shared_ptr<WdbIndexPages> pages = makePages(path);
    const Impl::RecursiveLock lock(m_impl->mutex);
    m_impl->pages = std::move(pages);
    m_impl->path = path;
}

void WdbAddressBTreeManager::reset() {
    // A listener in the middle of a call may want the mutex: no lock is held while it is waited
    // for.
    BTreeEventDispatcher* dispatcher = nullptr;
    {
        const Impl::RecursiveLock lock(m_impl->mutex);
        dispatcher = m_impl->dispatcher.get();
    }
    if (dispatcher != nullptr) dispatcher->unregisterAll();

    const Impl::Lock request(m_impl->requestMutex);
    const Impl::RecursiveLock lock(m_impl->mutex);
    // One that registered anew since listens to trees that are about to go.
    if (dispatcher != nullptr) dispatcher->forgetTrees();
    m_impl->hasTrees = false;
    m_impl->isDamaged = false;
    m_impl->setCells({});
    {
        const Impl::Lock buffer(m_impl->bufferMutex);
        m_impl->buffer.clear();
    }
    m_impl->appliedTime = m_impl->toldTime = Impl::NoTime;
    m_impl->trees.clear();
    m_impl->search.reset();
    m_impl->pages = makePages("");  // makes room for a new file of the same name
    m_impl->pages = makePages(m_impl->path);
}

void WdbAddressBTreeManager::setEventDatabase(WdbIEventBlockDatabase* database,
                                              boost::mutex* writeLock) {
    const Impl::Lock request(m_impl->requestMutex);
    m_impl->search.reset();
    m_impl->database = database;
    m_impl->writeLock = writeLock;
}

unsigned long long WdbAddressBTreeManager::getIndexSize() const {
    const Impl::RecursiveLock lock(m_impl->mutex);
    return m_impl->pages->getSize();
}

}  // namespace Korvel
