#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "transport/WdbCircularBuffer.h"
#include "transport/WdbLiveBatch.h"
#include "transport/WdbLivePacketContainer.h"

using namespace Korvel;

namespace {

constexpr unsigned int Capacity = 500;

volatile unsigned char lastSeen;  // so that values are read

void require(bool holds) {
    if (!holds) std::abort();
}

// Every record of a batch lies in it, so that their sizes add up to it at most.
void walk(const std::vector<char>& bytes, unsigned int size) {
    std::size_t seen = 0;
    WdbLiveBatch batch(bytes.data(), size);
    for (auto record = batch.next(); record != WdbLiveBatch::Record::End; record = batch.next()) {
        if (record == WdbLiveBatch::Record::Nonsense) return;
        const bool isMark = record == WdbLiveBatch::Record::Mark;
        seen += isMark ? 12 : WdbLivePacketContainer::RecordOverhead;
        if (!isMark) {
            const WdbLiveEvent& event = *batch.getEvent();
            for (unsigned int i = 0; i < event.m_valueLength; ++i, ++seen)
                lastSeen = event.getValue()[i];
        }
        require(seen <= size);
    }
    require(seen == size);
}

}  // namespace

// A ring of real records near its end, in which the input changes bytes.
void damageRecords(char* region, const std::uint8_t* data, std::size_t size) {
    const std::uint32_t offsets[] = {Capacity - 40, Capacity - 40};
    std::memcpy(region, offsets, sizeof(offsets));
    WdbCircularBuffer ring(region, Capacity + 8, false);
    const unsigned char value[] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (const unsigned int valueSize : {8U, 0U, 3U})
        ring.putPacket(WdbLivePacketContainer{1, valueSize, 5, value});
    ring.putPayload(value, sizeof(value));
    for (std::size_t i = 0; i + 1 < size; i += 2)
        region[(data[i] + 8u * (Capacity / 8 - 16)) % (Capacity + 8)] ^=
            static_cast<char>(data[i + 1]);
}

// The input is what another process left in the memory of a ring, offsets included. Taking from it
// and adding to it keep to the memory, and a ring from which was taken takes records again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint64_t> memory((Capacity + 8 + 7) / 8);
    char* region = reinterpret_cast<char*>(memory.data());
    std::copy_n(data, std::min<std::size_t>(size, Capacity + 8), region);
    if (size != 0 && data[0] % 3 == 0) {
        damageRecords(region, data + 1, std::min<std::size_t>(size - 1, 8));
    } else if (size != 0 && data[0] % 3 == 1) {  // offsets that can be
        for (int i = 0; i < 2; ++i) {
            std::uint32_t offset = 0;
            std::memcpy(&offset, region + 4 * i, 4);
            offset %= Capacity;
            std::memcpy(region + 4 * i, &offset, 4);
        }
    }
    WdbCircularBuffer ring(region, Capacity + 8, false);
    std::vector<char> taken(Capacity);
    unsigned int available = 0;
    if (ring.getPackets(taken.data(), available)) walk(taken, available);

    const std::vector<unsigned char> value(100, 1);
    const WdbLivePacketContainer event{1, 100, 5, value.data()};
    bool isPut = ring.putPacket(event);
    for (int i = 0; i < 2 && !isPut; ++i) {
        ring.getPackets(taken.data(), available);
        isPut = ring.putPacket(event);
    }
    require(isPut);
    require(ring.getPackets(taken.data(), available) && available >= 124);
    return 0;
}
