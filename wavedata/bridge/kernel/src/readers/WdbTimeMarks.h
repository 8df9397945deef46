#pragma once

#include <atomic>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

namespace Korvel {

/// Lets viewers wait for the time marks of a running simulation. Any thread may call.
///
/// Viewers hold the mutex for as long as they like: whoever announces never waits for it.
class WdbTimeMarks {
public:
    boost::mutex& getMutex() { return m_mutex; }

    /// Waits until something was announced since @p lock, of the mutex, was taken. Returns at once
    /// while no marks are to be expected.
    void wait(boost::unique_lock<boost::mutex>& lock);

    /// Marks are to be expected from here on.
    void begin();

    /// A mark has come.
    void announce();

    /// No further mark comes.
    void end();

    bool areExpected() const { return m_areExpected; }

private:
    boost::mutex m_mutex;

    // An announcement is past once the mutex could be taken after it: where it finds the mutex
    // free, and when a wait is over and has the mutex again. Until then it ends the next wait.
    boost::mutex m_stateMutex;  // guards what follows; comes last and is held for moments
    unsigned long long m_announced = 0;
    unsigned long long m_past = 0;  // of these
    std::atomic<bool> m_areExpected{false};
    boost::condition_variable m_moved;
};

}  // namespace Korvel
