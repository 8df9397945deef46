#include "readers/WdbSharedMemoryReader.h"

#include <algorithm>

#include <boost/chrono/duration.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include "events/WdbIEventBlockDatabase.h"
#include "readers/WdbCommonReader.h"
#include "support/WdbErrorPrint.h"
#include "support/WdbICheckpoint.h"
#include "transport/WdbLiveBatch.h"
#include "transport/WdbSharedMemMgr.h"

namespace Korvel {
namespace {

// Events for which the database lock is taken once: enough that it costs nothing, few enough that a
// question does not wait for long.
constexpr int EventsALock = 1000;

// Beyond, a simulation that is too fast for a viewer waits for it after all.
constexpr std::size_t LargestBacklog = std::size_t{256} << 20;

constexpr boost::chrono::microseconds LockInterval(200);  // between looks at a lock that is taken

}  // namespace

WdbSharedMemReader::WdbSharedMemReader(const std::string& directory, int index,
                                       WdbCommonReader* reader, WdbTimeMarks& timeMarks)
    : m_directory(directory),
      m_index(index),
      m_pReader(reader),
      m_timeMarks(timeMarks),
      m_transport(std::make_unique<WdbSharedMemMgr>(/*create=*/false, directory, index)) {}

WdbSharedMemReader::~WdbSharedMemReader() {
    stop();
}

// --- What other threads ask for. ---

bool WdbSharedMemReader::isTaken() const {
    return m_transport->getMemory().isTaken();
}

void WdbSharedMemReader::start(WdbIEventBlockDatabase* database) {
    if (m_thread.joinable()) m_thread.join();
    m_hasToldNonsense = m_hasToldFailure = m_hasBegunAgain = false;
    m_latestMark = m_latestEvent = NoTime;
    const Lock state(m_stateMutex);
    if (m_isToForget) forgetBacklog();
    m_isToForget = false;
    m_transport->prepareForStart();
    m_timeMarks.begin();  // where no thread can be made, stop() is to follow
    m_thread = boost::thread([this, database] { runReadThread(database); });
}

void WdbSharedMemReader::restart() {
    const Lock state(m_stateMutex);
    m_isToForget = true;
    m_transport->restart();
}

void WdbSharedMemReader::shutDown() {
    const Lock state(m_stateMutex);
    m_transport->shutDown();
}

void WdbSharedMemReader::stop() {
    shutDown();
    const boost::this_thread::disable_interruption whole;  // the thread would outlive what it uses
    if (m_thread.joinable()) m_thread.join();
    m_timeMarks.end();
}

void WdbSharedMemReader::reattach() {
    const WdbSharedMemory& memory = m_transport->getMemory();
    if (memory.getAddress() != nullptr) {
        if (!WdbSharedMemory::look(m_directory).isThere) return;
        // The directory may be another one by now, while the old one's object is still named.
        if (memory.getName() == createName(m_directory) && memory.isNamed()) return;
    }
    auto transport = std::make_unique<WdbSharedMemMgr>(/*create=*/false, m_directory, m_index);
    forgetBacklog();
    const Lock state(m_stateMutex);
    m_transport.swap(transport);
}

void WdbSharedMemReader::forgetBacklog() {
    m_backlog.clear();
    m_backlogSize = 0;
}

void WdbSharedMemReader::sleep(int k) {
    m_transport->sleepMem(k);
}

// --- The thread. ---

void WdbSharedMemReader::runReadThread(WdbIEventBlockDatabase* database) {
    m_checkpointClock.start();
    survive([&] { recordAll(*database); });
    survive([&] { recordEnd(*database); });
    m_timeMarks.end();
}

// No mark follows that would show what came after the last one, or say that its time was reached.
void WdbSharedMemReader::recordEnd(WdbIEventBlockDatabase& database) {
    m_pReader->flushEvents();
    const Lock lock(m_databaseMutex);
    if (m_latestEvent > database.getLatestTime()) database.setLatestTime(m_latestEvent);
}

void WdbSharedMemReader::recordAll(WdbIEventBlockDatabase& database) {
    std::vector<char> batch(WdbSharedMemMgr::RingSize);
    unsigned int size = 0;
    while (recordBacklog(database) && m_transport->getPackets(batch.data(), size)) {
        if (!recordBatch(batch.data(), size, database)) return;
    }
}

// False as recordBatch().
bool WdbSharedMemReader::recordBacklog(WdbIEventBlockDatabase& database) {
    while (!m_backlog.empty()) {
        const std::vector<char> batch = std::move(m_backlog.front());
        m_backlog.pop_front();
        m_backlogSize -= batch.size();
        if (!recordBatch(batch.data(), static_cast<unsigned int>(batch.size()), database))
            return false;
    }
    return true;
}

// False where the simulation begins again: the rest goes back into the backlog, in front.
bool WdbSharedMemReader::recordBatch(const char* bytes, unsigned int size,
                                     WdbIEventBlockDatabase& database) {
    const Stretch stretch = measure(bytes, size);
    survive([&] { recordStretch(bytes, stretch, database); });
    if (stretch.size == size) return true;
    m_hasBegunAgain = true;
    m_backlog.emplace_front(bytes + stretch.size, bytes + size);
    m_backlogSize += size - stretch.size;
    return false;
}

// A simulation may come back to the mark's own time.
bool WdbSharedMemReader::isOfNewRun(long long time) const {
    return m_isStoppingAtNewRun && time < m_latestMark;
}

// Up to where a new run begins.
WdbSharedMemReader::Stretch WdbSharedMemReader::measure(const char* bytes, unsigned int size) {
    Stretch stretch;
    WdbLiveBatch batch(bytes, size);
    for (;;) {
        const WdbLiveBatch::Record record = batch.next();
        if (record == WdbLiveBatch::Record::End || record == WdbLiveBatch::Record::Nonsense) break;
        if (isOfNewRun(batch.getTime())) return stretch;
        if (record == WdbLiveBatch::Record::Mark) {
            m_latestMark = batch.getTime();
            ++stretch.marks;
        }
        stretch.size += batch.getRecordSize();
    }
    stretch.size = size;
    return stretch;
}

// Of several marks the last is the one that counts: a viewer learns the same from it, at a fraction
// of the cost.
void WdbSharedMemReader::recordStretch(const char* bytes, const Stretch& stretch,
                                       WdbIEventBlockDatabase& database) {
    WdbLiveBatch batch(bytes, stretch.size);
    Lock lock(m_databaseMutex, boost::defer_lock);
    int events = 0;             // since the lock was taken
    int marks = stretch.marks;  // to come
    for (;;) {
        switch (batch.next()) {
            case WdbLiveBatch::Record::End:
                return;
            case WdbLiveBatch::Record::Nonsense:
                return wdbTellOnce(m_hasToldNonsense,
                                   "What the simulation of " + m_directory +
                                       " streams is damaged; a part of it is lost.");
            case WdbLiveBatch::Record::Mark:
                if (--marks > 0) break;
                if (lock.owns_lock()) lock.unlock();
                recordMark(batch.getTime(), database);
                break;
            case WdbLiveBatch::Record::Event:
                lockForEvent(lock, events);
                survive([&] { recordEvent(batch, database); });
        }
    }
}

void WdbSharedMemReader::lockForEvent(Lock& lock, int& events) {
    if (lock.owns_lock() && events >= EventsALock) {
        lock.unlock();
        boost::this_thread::yield();
    }
    if (!lock.owns_lock()) {
        lockAndDrain(lock);
        events = 0;
    }
    ++events;
}

void WdbSharedMemReader::recordEvent(WdbLiveBatch& batch, WdbIEventBlockDatabase& database) {
    m_hasMoreData.store(true, std::memory_order_relaxed);
    const WdbLiveEvent& event = *batch.getEvent();
    m_latestEvent = std::max(m_latestEvent, event.m_time);
    m_pReader->addEventBuffered(&event);
    database.writeEvent(event.m_time, event.m_address, event.m_valueLength, event.getValue());
}

void WdbSharedMemReader::recordMark(long long time, WdbIEventBlockDatabase& database) {
    {
        // Without the database lock: a viewer may draw for long.
        boost::unique_lock<boost::recursive_mutex> lock(m_pReader->getReadWriteMutex(),
                                                        boost::defer_lock);
        lockAndDrain(lock);
        survive([&] { m_pReader->flushEvents(); });
    }
    Lock lock(m_databaseMutex, boost::defer_lock);
    lockAndDrain(lock);
    database.setLatestTime(time);
    survive([&] { checkpointWhenDue(database); });
    lock.unlock();
    m_timeMarks.announce();
}

// A viewer that is killed leaves a recording that opens.
void WdbSharedMemReader::checkpointWhenDue(WdbIEventBlockDatabase& database) {
    if (!m_checkpointClock.isDue()) return;
    auto* recording = dynamic_cast<WdbICheckpoint*>(&database);
    if (recording == nullptr) return;
    m_checkpointClock.beginCheckpoint();
    recording->checkpoint();
    m_pReader->flushFile();
    m_checkpointClock.endCheckpoint();
}

// A request for new indexes holds the database lock while it reads the whole recording, and who
// draws the mutex of the indexes: for seconds, perhaps. The ring would be full long before, and the
// simulation would stand still. So the ring is emptied while a lock is waited for, into batches
// that are recorded behind the one at hand.
template <typename Mutex>
void WdbSharedMemReader::lockAndDrain(boost::unique_lock<Mutex>& lock) {
    while (!lock.try_lock()) {
        if (m_backlogSize >= LargestBacklog) return lock.lock();
        if (!drain()) boost::this_thread::sleep_for(LockInterval);
    }
}

// Makes room first: what was taken out of the ring must not get lost for want of memory.
bool WdbSharedMemReader::drain() {
    m_spare.resize(WdbSharedMemMgr::RingSize);
    std::vector<char>& batch = m_backlog.emplace_back();
    unsigned int size = 0;
    const bool isTaken = m_transport->takeWaiting(m_spare.data(), size);
    if (isTaken) {
        batch.swap(m_spare);
        batch.resize(size);
        batch.shrink_to_fit();
        m_backlogSize += size;
    } else {
        m_backlog.pop_back();
    }
    return isTaken;
}

// What cannot be recorded must not take the viewer's process with it, but for a file that cannot be
// written any more.
template <typename Action>
void WdbSharedMemReader::survive(Action&& action) {
    try {
        action();
    } catch (const std::exception& error) {
        wdbTellOnce(m_hasToldFailure, "The simulation of " + m_directory +
                                          " cannot be recorded as it should: " + error.what());
    }
}

}  // namespace Korvel
