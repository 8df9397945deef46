#include "readers/WdbSharedMemoryReader.h"

#include <iostream>

#include <boost/chrono/duration.hpp>
#include <boost/thread/reverse_lock.hpp>

#include "events/WdbIEventBlockDatabase.h"
#include "readers/WdbCommonReader.h"
#include "support/WdbICheckpoint.h"
#include "transport/WdbLiveBatch.h"
#include "transport/WdbSharedMemMgr.h"

namespace Korvel {
namespace {

// Events for which the database lock is taken once: enough that it costs nothing, few enough that a
// question does not wait for long.
constexpr int EventsALock = 1000;

// Beyond, a simulation that is too fast for a viewer's questions waits for them after all.
constexpr std::size_t LargestBacklog = std::size_t{256} << 20;

constexpr boost::chrono::microseconds LockInterval(200);  // between looks at a lock that is taken
constexpr boost::chrono::seconds MarkInterval(1);         // between looks whether a mark has come

void tellOnce(bool& hasTold, const std::string& text) {
    if (!hasTold) std::cerr << text + "\n";
    hasTold = true;
}

}  // namespace

WdbSharedMemReader::WdbSharedMemReader(const std::string& directory, int index,
                                       WdbCommonReader* reader)
    : m_directory(directory),
      m_index(index),
      m_pReader(reader),
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
    const Lock state(m_stateMutex);
    m_transport->prepareForStart();
    m_pastMarks = m_marks;
    m_thread = boost::thread([this, database] { runReadThread(database); });
    m_isReading = true;  // it cannot have ended yet: that takes the mutex
}

void WdbSharedMemReader::markTime(boost::unique_lock<boost::mutex>& lock) {
    unsigned long long known = 0;
    {
        const Lock state(m_stateMutex);
        known = m_pastMarks;
    }
    const boost::reverse_lock<boost::unique_lock<boost::mutex>> released(lock);
    Lock state(m_stateMutex);  // goes before the mark lock is taken again
    while (m_marks == known && m_isReading)
        m_moved.wait_for(state, MarkInterval);
    m_pastMarks = m_marks;
}

void WdbSharedMemReader::restart() {
    const Lock state(m_stateMutex);
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
}

void WdbSharedMemReader::reattach() {
    const WdbSharedMemory& memory = m_transport->getMemory();
    const bool isAttached = memory.getAddress() != nullptr;
    if (isAttached && (memory.isNamed() || !WdbSharedMemory::look(m_directory).isThere)) return;
    auto transport = std::make_unique<WdbSharedMemMgr>(/*create=*/false, m_directory, m_index);
    const Lock state(m_stateMutex);
    m_transport.swap(transport);
}

void WdbSharedMemReader::sleep(int k) {
    m_transport->sleepMem(k);
}

// --- The thread. ---

void WdbSharedMemReader::runReadThread(WdbIEventBlockDatabase* database) {
    const auto record = [&](const std::vector<char>& batch, std::size_t size) {
        survive([&] { recordBatch(batch.data(), static_cast<unsigned int>(size), *database); });
    };
    m_checkpointClock.start();
    survive([&] {
        std::vector<char> batch(WdbSharedMemMgr::RingSize);
        unsigned int size = 0;
        while (m_transport->getPackets(batch.data(), size)) {
            record(batch, size);
            for (; !m_backlog.empty(); m_backlog.pop_front()) {
                m_backlogSize -= m_backlog.front().size();
                record(m_backlog.front(), m_backlog.front().size());
            }
        }
    });
    // No mark follows that would show what came after the last one.
    survive([&] { m_pReader->flushEvents(); });
    const Lock state(m_stateMutex);
    m_isReading = false;
    m_moved.notify_all();
}

void WdbSharedMemReader::recordBatch(const char* bytes, unsigned int size,
                                     WdbIEventBlockDatabase& database) {
    WdbLiveBatch batch(bytes, size);
    const auto recordEvent = [&] {
        const WdbLiveEvent& event = *batch.getEvent();
        m_pReader->addEventBuffered(&event);
        database.writeEvent(event.m_time, event.m_address, event.m_valueLength, event.getValue());
    };
    Lock lock(m_databaseMutex, boost::defer_lock);
    int events = 0;  // since the lock was taken
    for (;;) {
        const WdbLiveBatch::Record record = batch.next();
        if (record == WdbLiveBatch::Record::End) return;
        if (record == WdbLiveBatch::Record::Nonsense) {
            tellOnce(m_hasToldNonsense, "What the simulation of " + m_directory +
                                            " streams is damaged; a part of it is lost.");
            return;
        }
        if (lock.owns_lock() && (record == WdbLiveBatch::Record::Mark || events == EventsALock)) {
            lock.unlock();
            if (record == WdbLiveBatch::Record::Event) boost::this_thread::yield();
        }
        if (record == WdbLiveBatch::Record::Mark) {
            recordMark(batch.getTime(), database);
            continue;
        }
        if (!lock.owns_lock()) {
            lockDatabase(lock);
            events = 0;
        }
        ++events;
        survive(recordEvent);
        m_hasMoreData.store(true, std::memory_order_relaxed);
    }
}

void WdbSharedMemReader::recordMark(long long time, WdbIEventBlockDatabase& database) {
    // Without the database lock: this waits for a viewer that draws.
    survive([&] { m_pReader->flushEvents(); });
    Lock lock(m_databaseMutex, boost::defer_lock);
    lockDatabase(lock);
    database.setLatestTime(time);
    survive([&] { checkpointWhenDue(database); });
    lock.unlock();

    // A viewer that holds the mark lock is busy with an earlier mark: its next markTime() returns
    // at once. For all others that do not wait now, this mark is past.
    const Lock mark(m_markMutex, boost::try_to_lock);
    const Lock state(m_stateMutex);
    ++m_marks;
    if (mark.owns_lock()) m_pastMarks = m_marks;
    m_moved.notify_all();
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

// A request for new indexes holds the lock while it reads the whole recording, which may take
// seconds. The ring would be full long before, and the simulation would stand still. So the ring is
// emptied while the lock is waited for, into batches that are recorded behind the one at hand.
void WdbSharedMemReader::lockDatabase(Lock& lock) {
    while (!lock.try_lock()) {
        if (m_backlogSize >= LargestBacklog) return lock.lock();
        unsigned int size = 0;
        m_spare.resize(WdbSharedMemMgr::RingSize);
        if (m_transport->takeWaiting(m_spare.data(), size)) {
            m_backlog.emplace_back(m_spare.begin(), m_spare.begin() + size);
            m_backlogSize += size;
        } else {
            boost::this_thread::sleep_for(LockInterval);
        }
    }
}

// What cannot be recorded must not take the viewer's process with it.
template <typename Action>
void WdbSharedMemReader::survive(Action&& action) {
    try {
        action();
    } catch (const std::exception& error) {
        tellOnce(m_hasToldFailure, "The simulation of " + m_directory +
                                       " cannot be recorded as it should: " + error.what());
    }
}

}  // namespace Korvel
