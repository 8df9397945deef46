#pragma once

#include <atomic>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "readers/WdbTimeMarks.h"
#include "support/WdbCheckpointClock.h"

namespace Korvel {

class WdbCommonReader;
class WdbIEventBlockDatabase;
class WdbLiveBatch;
class WdbSharedMemMgr;

/// Records what a running simulation streams: a thread empties the ring into an event database and
/// tells the reader of every record.
///
/// The database lock is held while the database is written; the mutex of the reader's indexes comes
/// after it. While the thread waits for either it goes on emptying the ring.
///
/// Any thread may call hasMoreData(), markTime(), restart(), shutDown(), isReading() and
/// hasBegunAgain(); the others by one thread at a time.
class WdbSharedMemReader {
public:
    /// Opens the ring of the simulation of @p directory. @p reader and @p timeMarks, which are told
    /// of the marks, are not owned.
    WdbSharedMemReader(const std::string& directory, int index, WdbCommonReader* reader,
                       WdbTimeMarks& timeMarks);
    ~WdbSharedMemReader();
    WdbSharedMemReader(const WdbSharedMemReader&) = delete;
    WdbSharedMemReader& operator=(const WdbSharedMemReader&) = delete;

    /// Whether the simulation has another viewer.
    bool isTaken() const;

    /// Begins to record into @p database, which is not owned, once an earlier thread has ended.
    void start(WdbIEventBlockDatabase* database);

    /// What the thread does, until it is shut down, the ring or the simulation's time begins anew,
    /// or the simulation is gone and all that it sent is recorded.
    void runReadThread(WdbIEventBlockDatabase* database);
    bool isReading() const { return m_timeMarks.areExpected(); }

    /// From the next start() on, whether the thread ends where the simulation comes back to a time
    /// before its latest mark. Not at first.
    void setStoppingAtNewRun(bool isStopping) { m_isStoppingAtNewRun = isStopping; }

    /// Whether the thread has ended because the simulation came back to a time before its latest
    /// mark. What it sent from there on is kept for the next start().
    bool hasBegunAgain() const { return m_hasBegunAgain; }

    /// Whether events were recorded since the last call.
    bool hasMoreData() { return m_hasMoreData.exchange(false); }

    /// Waits until a mark was recorded since @p lock, of the marks' mutex, was taken, or the thread
    /// has ended.
    void markTime(boost::unique_lock<boost::mutex>& lock) { m_timeMarks.wait(lock); }

    /// Ends the thread and forgets what the simulation has sent.
    void restart();

    /// Ends the thread, which first records what it has taken out of the ring.
    void shutDown();

    /// The same, and waits for it. The caller holds neither the database lock nor what comes after.
    void stop();

    /// Opens the ring that the directory has by now, if that is another one. No thread runs.
    void reattach();

    /// Sleeps @p k times 10 milliseconds.
    void sleep(int k);

    boost::mutex& getDatabaseMutex() { return m_databaseMutex; }

private:
    using Lock = boost::unique_lock<boost::mutex>;

    static constexpr long long NoTime = std::numeric_limits<long long>::min();

    // The part of a batch that belongs to the run that is being recorded.
    struct Stretch {
        unsigned int size = 0;  // bytes
        int marks = 0;
    };

    void forgetBacklog();
    void recordEnd(WdbIEventBlockDatabase& database);
    void recordAll(WdbIEventBlockDatabase& database);
    bool recordBacklog(WdbIEventBlockDatabase& database);
    bool recordBatch(const char* bytes, unsigned int size, WdbIEventBlockDatabase& database);
    bool isOfNewRun(long long time) const;
    Stretch measure(const char* bytes, unsigned int size);
    void recordStretch(const char* bytes, const Stretch& stretch, WdbIEventBlockDatabase& database);
    void lockForEvent(Lock& lock, int& events);
    void recordEvent(WdbLiveBatch& batch, WdbIEventBlockDatabase& database);
    void recordMark(long long time, WdbIEventBlockDatabase& database);
    void checkpointWhenDue(WdbIEventBlockDatabase& database);
    template <typename Mutex>
    void lockAndDrain(boost::unique_lock<Mutex>& lock);
    bool drain();
    template <typename Action>
    void survive(Action&& action);

    const std::string m_directory;
    const int m_index;
    WdbCommonReader* m_pReader;
    WdbTimeMarks& m_timeMarks;
    boost::mutex m_databaseMutex;

    boost::mutex m_stateMutex;  // guards the next two; comes last and is held for moments
    std::unique_ptr<WdbSharedMemMgr> m_transport;  // never null; replaced while no thread runs
    bool m_isToForget = false;                     // by start(): the backlog
    std::atomic<bool> m_hasMoreData{false};
    std::atomic<bool> m_hasBegunAgain{false};
    boost::thread m_thread;

    // The thread's own while it runs.
    std::deque<std::vector<char>> m_backlog;  // batches that are to be recorded next
    std::size_t m_backlogSize = 0;            // their bytes
    std::vector<char> m_spare;                // for the next of them; empty until used
    long long m_latestMark = NoTime;
    long long m_latestEvent = NoTime;  // its time
    bool m_isStoppingAtNewRun = false;
    WdbCheckpointClock m_checkpointClock;
    bool m_hasToldNonsense = false;
    bool m_hasToldFailure = false;
};

}  // namespace Korvel
