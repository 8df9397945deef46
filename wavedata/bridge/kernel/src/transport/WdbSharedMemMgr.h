#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "transport/WdbCircularBuffer.h"
#include "transport/WdbSharedMemory.h"

namespace Korvel {

/// One side of the transport: puts records into the ring or takes them out, and waits while it is
/// full or empty.
///
/// Every operation that waits gives up once shutDown() was called, and where there is no memory.
/// One producer and one consumer; the flags may be set by any thread.
///
/// A simulator whose viewer has left is not held up: when the ring is full, what is in it is
/// forgotten, so that the newest stretch waits for the next viewer, and where the viewer took the
/// object's name away, a new object takes its place. A simulator that has had no viewer yet waits
/// for one.
class WdbSharedMemMgr {
public:
    static constexpr int RingSize = 8'192'000;

    /// @param create     The simulator's side; otherwise the viewer's.
    /// @param directory  Whose simulation it is.
    WdbSharedMemMgr(bool create, const std::string& directory, int index, int ringSize = RingSize);

    /// A simulator's side lets a viewer that waits for the simulation attach before it goes.
    ~WdbSharedMemMgr();
    WdbSharedMemMgr(const WdbSharedMemMgr&) = delete;
    WdbSharedMemMgr& operator=(const WdbSharedMemMgr&) = delete;

    /// False when the record is lost.
    bool putPacket(WdbLivePacketContainer* event);
    /// No other record may be on its way meanwhile.
    bool putPacketMarkTime(long long time);
    /// A record of @p n bytes.
    bool putPacket(const char* bytes, unsigned int n);

    /// Waits for records and takes them all. False when shut down, when the ring is begun anew, and
    /// when the simulator has left and so has the last record.
    /// @param dest  Of the ring's size.
    bool getPackets(char* dest, unsigned int& available);

    /// As getPackets(), but false at once where nothing waits.
    bool takeWaiting(char* dest, unsigned int& available);

    /// Sleeps @p k times 10 milliseconds.
    void sleepMem(int k);

    void shutDown() { m_isShutDown = true; }
    /// Arms all operations again after shutDown() and restart().
    void prepareForStart();

    /// Ends getPackets() until prepareForStart(), and forgets what is in the ring.
    void restart();

    /// Forgets what is in the ring.
    void clear();

    const WdbSharedMemory& getMemory() const { return *m_memory; }

private:
    template <typename Attempt>
    bool putWithRetry(unsigned long long size, Attempt&& attempt);
    bool makeRoom();
    void sayWaiting();
    bool take(char* dest, unsigned int& available);
    void renewObject();
    void awaitWaitingViewer();

    std::unique_ptr<WdbSharedMemory> m_memory;
    std::unique_ptr<WdbCircularBuffer> m_ring;
    std::atomic<bool> m_isShutDown{false};
    std::atomic<bool> m_isRestarting{false};

    // Held by the viewer's side while it takes a batch and while it empties the ring.
    std::mutex m_takeMutex;

    const std::string m_directory;  // absolute
    const int m_ringSize;
    // The simulator's side only.
    const bool m_isSimulator;
    bool m_hadViewer = false;  // with an object before this one
    bool m_hasSaidWaiting = false;
    bool m_hasLostObject = false;  // which has been said
    long long m_lookDueAt = 0;     // nanoseconds of the coarse clock
};

}  // namespace Korvel
