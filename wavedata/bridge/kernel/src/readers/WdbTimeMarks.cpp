#include "readers/WdbTimeMarks.h"

#include <boost/chrono/duration.hpp>
#include <boost/thread/reverse_lock.hpp>

namespace Korvel {
namespace {

using Lock = boost::unique_lock<boost::mutex>;

constexpr boost::chrono::seconds WaitInterval(1);  // between looks whether a mark has come

}  // namespace

void WdbTimeMarks::wait(Lock& lock) {
    Lock state(m_stateMutex);
    const unsigned long long past = m_past;
    state.unlock();
    {
        const boost::reverse_lock<Lock> released(lock);
        state.lock();
        while (m_announced == past && m_areExpected)
            m_moved.wait_for(state, WaitInterval);
        state.unlock();
    }
    state.lock();
    m_past = m_announced;
}

void WdbTimeMarks::begin() {
    const Lock state(m_stateMutex);
    m_areExpected = true;
}

void WdbTimeMarks::announce() {
    const Lock free(m_mutex, boost::try_to_lock);
    const Lock state(m_stateMutex);
    ++m_announced;
    if (free.owns_lock()) m_past = m_announced;
    m_moved.notify_all();
}

// Announced too: another beginning may follow before those who wait have looked.
void WdbTimeMarks::end() {
    {
        const Lock state(m_stateMutex);
        if (!m_areExpected) return;
        m_areExpected = false;
    }
    announce();
}

}  // namespace Korvel
