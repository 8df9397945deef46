#include "writers/WdbLiveWriter.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <list>

#include <boost/chrono/duration.hpp>
#include <boost/thread/lock_types.hpp>

#include "support/OutputFileNames.h"
#include "transport/WdbLivePacketContainer.h"
#include "transport/WdbSharedMemMgr.h"

namespace Korvel {
namespace {

using Lock = boost::unique_lock<boost::mutex>;

// A record of this size is cut. So are sizes that are negative as signed numbers, but for those
// whose record has a size again; the ring refuses these.
constexpr unsigned int RecordLimit = 299;
constexpr int LargestWholeSize = RecordLimit - 1 - WdbLivePacketContainer::RecordOverhead;
constexpr int SmallestWholeSize = -static_cast<int>(WdbLivePacketContainer::RecordOverhead);
static_assert(LargestWholeSize == 274);

// An event clears its flag without a barrier, which would be its dearest instruction. So its look
// whether a mark waits may come too early; the mark looks again by itself.
constexpr boost::chrono::milliseconds LookInterval(1);

}  // namespace

WdbLiveWriter* WdbLiveWriter::s_pLiveWriter = nullptr;

WdbLiveWriter::WdbLiveWriter() {
    s_pLiveWriter = this;
}

WdbLiveWriter::~WdbLiveWriter() {
    if (s_pLiveWriter == this) s_pLiveWriter = nullptr;
}

void WdbLiveWriter::open(WriterMode mode, const std::string& designPath, const std::string&,
                         int index) {
    if (mode != LiveMode) std::exit(EXIT_FAILURE);
    close();
    const std::string directory = TORQ::OutputFileNames::getKernelDirectory(designPath);
    m_transport = std::make_unique<WdbSharedMemMgr>(/*create=*/true, directory, index);
    if (m_transport->getMemory().getAddress() == nullptr) {
        std::cerr << "No viewer can follow the simulation of " + directory +
                         ": what it streams is lost.\n";
    }
}

void WdbLiveWriter::close() {
    m_transport.reset();
}

void WdbLiveWriter::restart() {
    if (m_transport) m_transport->clear();
}

// --- Once per time step. ---

void WdbLiveWriter::markCurrentTime(long long time) {
    if (!m_transport) return;
    Lock lock(m_packetMutex);
    m_isMarkPending = true;
    while (m_isRegularInFlight)
        m_packetCondition.wait_for(lock, LookInterval);
    m_transport->putPacketMarkTime(time);
    m_isMarkPending = false;
    m_packetCondition.notify_all();
}

// --- Once per value change: no lock while no time is being marked, no allocation for values of up
// to 274 bytes, no system call while the ring has room. ---

void WdbLiveWriter::putPacketRegular(WdbLivePacketContainer& event) {
    m_isRegularInFlight = true;
    if (m_isMarkPending) enterBehindMark();
    m_transport->putPacket(&event);
    m_isRegularInFlight.store(false, std::memory_order_release);
    if (m_isMarkPending) leaveToMark();
}

void WdbLiveWriter::constructAndPutRegularPacket(long long time, unsigned int size,
                                                 unsigned long long address,
                                                 const unsigned char* value) {
    WdbLivePacketContainer event{time, size, address, value};
    const int signedSize = static_cast<int>(size);
    if (SmallestWholeSize <= signedSize && signedSize <= LargestWholeSize) {
        putPacketRegular(event);
        return;
    }
    std::list<WdbLivePacketContainer> parts;
    event.splitContainer(parts, RecordLimit);
    for (WdbLivePacketContainer& part : parts)
        putPacketRegular(part);
}

void WdbLiveWriter::mergeAndPutVlogPacket(long long time, unsigned long long address,
                                          const unsigned char* current, const unsigned char* bits,
                                          unsigned int firstBit, unsigned int endBit) {
    if (endBit <= firstBit) return;
    const WdbVlogMerge::Range range = WdbVlogMerge::pairsOf(firstBit, endBit);
    const unsigned char* merged = m_merge.merge(current, bits, firstBit, endBit);
    constructAndPutRegularPacket(time, sizeof(WdbVlogPair) * range.pairCount,
                                 address + sizeof(WdbVlogPair) * range.firstPair, merged);
    m_merge.trim();
}

unsigned long long WdbLiveWriter::addressOf(const unsigned char* storage) const {
    return reinterpret_cast<std::uintptr_t>(storage) - static_cast<std::uintptr_t>(m_baseOffset);
}

void WdbLiveWriter::traceVhdl(long long time, unsigned int, unsigned int size,
                              unsigned char* storage, unsigned char* value) {
    WdbLiveWriter* writer = s_pLiveWriter;
    if (writer == nullptr || !writer->m_transport) return;
    writer->constructAndPutRegularPacket(time, size, writer->addressOf(storage), value);
}

void WdbLiveWriter::traceVlog(long long time, unsigned int, unsigned int, unsigned char* storage,
                              unsigned char* bits, unsigned int firstBit, unsigned int endBit) {
    WdbLiveWriter* writer = s_pLiveWriter;
    if (writer == nullptr || !writer->m_transport) return;
    writer->mergeAndPutVlogPacket(time, writer->addressOf(storage), storage, bits, firstBit,
                                  endBit);
}

void WdbLiveWriter::traceScObject(long long time, unsigned long long address,
                                  unsigned char* current, unsigned char* bits,
                                  unsigned int firstBit, unsigned int bitCount) {
    WdbLiveWriter* writer = s_pLiveWriter;
    if (writer == nullptr || !writer->m_transport) return;
    writer->mergeAndPutVlogPacket(time, address, current, bits, firstBit, firstBit + bitCount);
}

void WdbLiveWriter::traceScVirtualObject(long long time, unsigned long long address,
                                         unsigned char* value, unsigned int offset,
                                         unsigned int size) {
    WdbLiveWriter* writer = s_pLiveWriter;
    if (writer == nullptr || !writer->m_transport) return;
    writer->constructAndPutRegularPacket(time, size, address + offset, value);
}

// --- End of the path that runs once per value change. ---

// A mark is on its way: it was first, or both sides were at once. The mark waits for the flag to
// fall, this side for the mark to be in the ring.
void WdbLiveWriter::enterBehindMark() {
    Lock lock(m_packetMutex);
    while (m_isMarkPending) {
        m_isRegularInFlight = false;
        m_packetCondition.notify_all();
        m_packetCondition.wait(lock);
    }
    m_isRegularInFlight = true;
}

void WdbLiveWriter::leaveToMark() {
    const Lock lock(m_packetMutex);
    m_packetCondition.notify_all();
}

void WdbLiveWriter::traceVhdlScalar(long long, unsigned int, unsigned int, const unsigned char*) {
    std::cout << "trace vhdl scalar called" << std::endl;
}

}  // namespace Korvel
