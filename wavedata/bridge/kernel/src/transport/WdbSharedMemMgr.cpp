#include "transport/WdbSharedMemMgr.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <vector>

#include <boost/chrono/duration.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <boost/thread/thread.hpp>

#include "support/WdbErrorPrint.h"
#include "transport/WdbLivePacket.h"
#include "transport/WdbLivePacketContainer.h"
#include "transport/WdbWaitingViewer.h"

namespace Korvel {
namespace {

constexpr int AttemptsInARow = 100;
constexpr int SleepsBeforeWord = 100;            // about a second
constexpr int MostSleepsForViewer = 200;         // about two seconds
constexpr long long LookInterval = 100'000'000;  // nanoseconds
constexpr long long LookIntervalAfterFailure = 50 * LookInterval;

std::string absolute(const std::string& directory) {
    boost::system::error_code error;
    return boost::filesystem::system_complete(directory, error).string();
}

long long coarseNow() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * 1'000'000'000ll + time.tv_nsec;
}

}  // namespace

WdbSharedMemMgr::WdbSharedMemMgr(bool create, const std::string& directory, int index, int ringSize)
    : m_memory(std::make_unique<WdbSharedMemory>(
          create ? WdbSharedMemory::Create : WdbSharedMemory::Open, ringSize, directory, index)),
      m_ring(std::make_unique<WdbCircularBuffer>(m_memory->getAddress(),
                                                 static_cast<unsigned int>(ringSize), create)),
      m_directory(absolute(directory)),
      m_ringSize(ringSize),
      m_isSimulator(create) {}

WdbSharedMemMgr::~WdbSharedMemMgr() {
    if (m_isSimulator && m_memory->isOfThisProcess()) awaitWaitingViewer();
}

// --- The simulator's side. ---

bool WdbSharedMemMgr::putPacket(WdbLivePacketContainer* event) {
    return putWithRetry(0ull + event->m_valueSize + WdbLivePacketContainer::RecordOverhead,
                        [&] { return m_ring->putPacket(*event); });
}

bool WdbSharedMemMgr::putPacketMarkTime(long long time) {
    const long long now = coarseNow();
    if (now >= m_lookDueAt) {
        m_lookDueAt = now + LookInterval;
        renewObject();
    }
    return putWithRetry(sizeof(time) + WdbLivePacket::LengthSize,
                        [&] { return m_ring->putPayload(&time, sizeof(time)); });
}

bool WdbSharedMemMgr::putPacket(const char* bytes, unsigned int n) {
    const unsigned long long size = 0ull + n + WdbLivePacket::LengthSize;
    if (!m_ring->isRecordSize(size)) return false;
    const std::unique_ptr<WdbLivePacket> packet(new (n) WdbLivePacket(n));
    packet->putData(bytes);
    return putWithRetry(size, [&] { return m_ring->putPacket(*packet); });
}

template <typename Attempt>
bool WdbSharedMemMgr::putWithRetry(unsigned long long size, Attempt&& attempt) {
    for (int sleeps = 0; m_ring->isRecordSize(size); ++sleeps) {
        for (int i = 0; i < AttemptsInARow; ++i) {
            if (m_isShutDown.load(std::memory_order_relaxed)) return false;
            if (attempt()) return true;
        }
        if (makeRoom()) continue;
        if (sleeps == SleepsBeforeWord) sayWaiting();
        sleepMem(1);
    }
    return false;  // it never fits, as none does where there is no memory
}

// The ring is full. Nobody is held up by a viewer that has left.
bool WdbSharedMemMgr::makeRoom() {
    if (m_memory->isOtherSideThere()) return false;
    if (m_memory->hasOtherSideLeft()) m_hadViewer = true;
    if (m_hadViewer) m_ring->forget();
    renewObject();
    return m_hadViewer;
}

void WdbSharedMemMgr::sayWaiting() {
    const std::string what = m_memory->isOtherSideThere() ? "the viewer" : "a viewer";
    wdbTellOnce(m_hasSaidWaiting, "The simulation waits for " + what + " of " + m_directory +
                                      ": what it streams has filled the memory between them.");
}

// A viewer takes the object's name away when it goes; the next one is to find the simulation all
// the same, with what waits in the ring. A name that another simulator has by now is left to it.
void WdbSharedMemMgr::renewObject() {
    if (m_ring->getCapacity() == 0 && !m_hasLostObject) return;  // there never was one
    if (m_memory->isNamed() || m_memory->isOtherSideThere()) return;
    const WdbSharedMemory::Presence presence = WdbSharedMemory::look(m_directory);
    if (presence.isThere || presence.isDenied) return;
    if (m_memory->hasOtherSideLeft()) m_hadViewer = true;
    // There may not be memory for two objects at once.
    const char* address = m_memory->getAddress();
    const std::vector<char> waiting(address, address + (address != nullptr ? m_ringSize : 0));
    const bool isMade = m_memory->createUnlessThere(m_ringSize, m_directory) != nullptr;
    const int reason = errno;
    m_ring = std::make_unique<WdbCircularBuffer>(m_memory->getAddress(),
                                                 static_cast<unsigned int>(m_ringSize), true);
    if (!waiting.empty()) m_ring->takeOver(waiting.data());
    if (isMade) return;
    m_lookDueAt += LookIntervalAfterFailure;
    wdbTellOnce(m_hasLostObject, "No viewer can follow the simulation of " + m_directory +
                                     " any more: " + std::strerror(reason));
}

void WdbSharedMemMgr::awaitWaitingViewer() {
    if (m_memory->getAddress() == nullptr || m_memory->isOtherSideThere()) return;
    for (int i = 0; i < MostSleepsForViewer && WdbWaitingViewer::isThere(m_directory); ++i) {
        if (m_memory->isOtherSideThere()) return;
        sleepMem(1);
    }
}

// --- The viewer's side. ---

bool WdbSharedMemMgr::getPackets(char* dest, unsigned int& available) {
    available = 0;
    if (m_memory->getAddress() == nullptr) return false;
    for (bool isLastTry = false;;) {
        for (int i = 0; i < AttemptsInARow; ++i) {
            if (m_isShutDown || m_isRestarting) return false;
            if (take(dest, available)) return true;
        }
        if (isLastTry) return false;
        // What it sent before it left is still to be taken.
        isLastTry = m_memory->hasOtherSideLeft();
        if (!isLastTry) sleepMem(1);
    }
}

bool WdbSharedMemMgr::takeWaiting(char* dest, unsigned int& available) {
    available = 0;
    return !m_isShutDown && !m_isRestarting && take(dest, available);
}

bool WdbSharedMemMgr::take(char* dest, unsigned int& available) {
    const std::lock_guard<std::mutex> lock(m_takeMutex);
    return m_ring->getPackets(dest, available);
}

// --- Either side. ---

void WdbSharedMemMgr::sleepMem(int k) {
    constexpr int Unit = 10;
    boost::this_thread::sleep_for(boost::chrono::milliseconds(Unit * k));
}

void WdbSharedMemMgr::prepareForStart() {
    m_isShutDown = false;
    m_isRestarting = false;
}

void WdbSharedMemMgr::restart() {
    m_isRestarting = true;
    clear();
}

void WdbSharedMemMgr::clear() {
    if (m_isSimulator && m_memory->isOtherSideThere()) {
        m_ring->forget();
    } else {
        const std::lock_guard<std::mutex> lock(m_takeMutex);
        m_ring->clear();
    }
}

}  // namespace Korvel
