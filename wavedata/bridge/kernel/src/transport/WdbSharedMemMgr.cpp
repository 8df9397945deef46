#include "transport/WdbSharedMemMgr.h"

#include <ctime>
#include <iostream>
#include <limits>
#include <utility>

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>

#include "transport/WdbLivePacket.h"
#include "transport/WdbLivePacketContainer.h"
#include "transport/WdbWaitingViewer.h"

namespace Korvel {
namespace {

constexpr int AttemptsInARow = 100;
constexpr int SleepsBeforeWord = 100;            // about a second
constexpr int MostSleepsForViewer = 200;         // about two seconds
constexpr long long LookInterval = 100'000'000;  // nanoseconds

long long coarseNow() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * 1'000'000'000ll + time.tv_nsec;
}

}  // namespace

WdbSharedMemMgr::WdbSharedMemMgr(bool create, const std::string& directory, int index, int ringSize)
    : m_directory(directory), m_index(index), m_ringSize(ringSize), m_isSimulator(create) {
    m_memory = makeMemory(create ? WdbSharedMemory::Create : WdbSharedMemory::Open);
    m_ring = makeRing(*m_memory);
}

WdbSharedMemMgr::~WdbSharedMemMgr() {
    if (m_isSimulator && m_memory->isOfThisProcess()) awaitWaitingViewer();
}

std::unique_ptr<WdbSharedMemory> WdbSharedMemMgr::makeMemory(int create) const {
    return std::make_unique<WdbSharedMemory>(create, m_ringSize, m_directory, m_index);
}

std::unique_ptr<WdbCircularBuffer> WdbSharedMemMgr::makeRing(const WdbSharedMemory& memory) const {
    return std::make_unique<WdbCircularBuffer>(
        memory.getAddress(), static_cast<unsigned int>(m_ringSize), m_isSimulator);
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
    if (!m_ring->isRecordSize(size)) return false;  // nor does any without memory
    for (;;) {
        for (int i = 0; i < AttemptsInARow; ++i) {
            if (m_isShutDown.load(std::memory_order_relaxed)) return false;
            if (attempt()) return true;
        }
        if (!makeRoom()) sleepMem(1);
    }
}

// The ring is full.
bool WdbSharedMemMgr::makeRoom() {
    if (m_memory->isOtherSideThere()) return false;
    if (m_hadViewer || m_memory->hasOtherSideLeft()) {
        m_hadViewer = true;
        m_ring->clear();
        renewObject();
        return true;
    }
    if (++m_sleepsWithoutViewer == SleepsBeforeWord) {
        std::cerr << "The simulation waits for a viewer of " + m_directory +
                         ": what it streams has filled the memory between them.\n";
    }
    return false;
}

// A viewer takes the object's name away when it goes; the next one is to find the simulation all
// the same, with what waits in the ring. A name that another simulator has by now is left to it.
void WdbSharedMemMgr::renewObject() {
    if (m_memory->getAddress() == nullptr || m_memory->isNamed()) return;
    if (m_memory->isOtherSideThere() || WdbSharedMemory::look(m_directory).isThere) return;
    if (m_memory->hasOtherSideLeft()) m_hadViewer = true;
    auto memory = makeMemory(WdbSharedMemory::Create);
    if (memory->getAddress() == nullptr) {
        m_lookDueAt = std::numeric_limits<long long>::max();  // nothing will change soon
        return;
    }
    auto ring = makeRing(*memory);
    ring->takeOver(*m_ring);
    m_ring = std::move(ring);
    m_memory = std::move(memory);
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
            if (m_ring->getPackets(dest, available)) return true;
        }
        if (isLastTry) return false;
        // What it sent before it left is still to be taken.
        isLastTry = m_memory->hasOtherSideLeft();
        if (!isLastTry) sleepMem(1);
    }
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
    m_ring->clear();
}

}  // namespace Korvel
