#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "support/WdbCheckpointClock.h"

namespace Korvel {

class WdbCommonReader;
class WdbIEventBlockDatabase;
class WdbSharedMemMgr;

/// Records what a running simulation streams: a thread empties the ring into an event database and
/// tells the reader of every record.
///
/// The database lock is held while the database is written; the mutex of the reader's indexes comes
/// after it. The mark lock is the viewer's: the thread never waits for it, so that a viewer may
/// hold it for as long as it likes, also while it waits for the thread's end.
///
/// Any thread may call hasMoreData(), markTime(), restart(), shutDown() and isReading(); the others
/// by one thread at a time.
class WdbSharedMemReader {
public:
    /// Opens the ring of the simulation of @p directory. @p reader is not owned.
    WdbSharedMemReader(const std::string& directory, int index, WdbCommonReader* reader);
    ~WdbSharedMemReader();
    WdbSharedMemReader(const WdbSharedMemReader&) = delete;
    WdbSharedMemReader& operator=(const WdbSharedMemReader&) = delete;

    /// Whether the simulation has another viewer.
    bool isTaken() const;

    /// Begins to record into @p database, which is not owned, once an earlier thread has ended.
    void start(WdbIEventBlockDatabase* database);

    /// What the thread does, until it is shut down, the ring begins anew, or the simulation is gone
    /// and all that it sent is recorded.
    void runReadThread(WdbIEventBlockDatabase* database);
    bool isReading() const { return m_isReading; }

    /// Whether events were recorded since the last call.
    bool hasMoreData() { return m_hasMoreData.exchange(false); }

    /// Waits until a mark was recorded since @p lock, of the mark lock, was taken, or the thread
    /// has ended.
    void markTime(boost::unique_lock<boost::mutex>& lock);

    /// Ends the thread and forgets what is in the ring.
    void restart();

    /// Ends the thread, which first records what it has taken out of the ring.
    void shutDown();

    /// The same, and waits for it. The caller holds neither the database lock nor what comes after.
    void stop();

    /// Opens the ring that the directory has by now, if that is another one. No thread runs.
    void reattach();

    /// Sleeps @p k times 10 milliseconds.
    void sleep(int k);

    boost::mutex& getMarkMutex() { return m_markMutex; }
    boost::mutex& getDatabaseMutex() { return m_databaseMutex; }

private:
    using Lock = boost::unique_lock<boost::mutex>;

    void recordBatch(const char* bytes, unsigned int size, WdbIEventBlockDatabase& database);
    void recordMark(long long time, WdbIEventBlockDatabase& database);
    void checkpointWhenDue(WdbIEventBlockDatabase& database);
    void lockDatabase(Lock& lock);
    template <typename Action>
    void survive(Action&& action);

    const std::string m_directory;
    const int m_index;
    WdbCommonReader* m_pReader;
    boost::mutex m_databaseMutex;
    boost::mutex m_markMutex;

    boost::mutex m_stateMutex;  // guards the next four; comes last and is held for moments
    std::unique_ptr<WdbSharedMemMgr> m_transport;  // never null; replaced while no thread runs
    unsigned long long m_marks = 0;                // that were recorded
    unsigned long long m_pastMarks = 0;            // of these, what no later markTime() returns for
    boost::condition_variable m_moved;             // another mark, or the thread's end
    std::atomic<bool> m_isReading{false};          // set to false under m_stateMutex
    std::atomic<bool> m_hasMoreData{false};
    boost::thread m_thread;

    // The thread's own.
    std::deque<std::vector<char>> m_backlog;  // batches that wait for the database lock
    std::size_t m_backlogSize = 0;            // their bytes
    std::vector<char> m_spare;                // for the next of them; empty until used
    WdbCheckpointClock m_checkpointClock;
    bool m_hasToldNonsense = false;
    bool m_hasToldFailure = false;
};

}  // namespace Korvel
