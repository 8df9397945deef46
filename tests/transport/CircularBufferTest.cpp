#include "transport/WdbCircularBuffer.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "transport/WdbLiveBatch.h"
#include "transport/WdbLivePacketContainer.h"

namespace Korvel {
namespace {

constexpr unsigned int Overhead = WdbLivePacketContainer::RecordOverhead;

// A ring over memory of its own, whose two offsets a test can set as the other process could.
struct Ring {
    explicit Ring(unsigned int capacity)
        : memory((capacity + 8 + 3) / 4), buffer(bytes(), capacity + 8, true), taken(capacity) {}

    char* bytes() { return reinterpret_cast<char*>(memory.data()); }
    unsigned int& writeOffset() { return memory[0]; }
    unsigned int& readOffset() { return memory[1]; }
    bool put(const std::string& value, long long time = 0) {
        return buffer.putPacket({time, static_cast<unsigned int>(value.size()), 0,
                                 reinterpret_cast<const unsigned char*>(value.data())});
    }
    std::string get() {
        unsigned int available = 0;
        return buffer.getPackets(taken.data(), available) ? std::string(taken.data(), available)
                                                          : std::string();
    }

    std::vector<unsigned int> memory;
    WdbCircularBuffer buffer;
    std::vector<char> taken;
};

// The rule as it is documented, in unlimited numbers.
bool mayWrite(long long capacity, long long read, long long write, long long n) {
    const long long half = capacity / 2;
    if (n >= half) return false;
    const long long end = write + n >= capacity ? write + n - capacity : write + n;
    if (0 <= write - read && write - read < half) return true;
    if (read - write > half) return true;
    if (0 <= end - read && end - read < half) return false;
    return read - end < 0 || read - end <= half;
}

TEST(CircularBuffer, neverLetsARecordReachWhatIsUnread) {
    for (const unsigned int capacity : {16U, 17U, 40U, 61U}) {
        Ring ring(capacity);
        for (unsigned int i = 0; i < capacity * capacity * (capacity + 2); ++i) {
            const unsigned int read = i % capacity;
            const unsigned int write = i / capacity % capacity;
            const unsigned int n = i / capacity / capacity;
            ring.readOffset() = read;
            ring.writeOffset() = write;
            unsigned int from = 0;
            unsigned int to = 0;
            const bool isAllowed = ring.buffer.canWrite(from, to, n);
            ASSERT_EQ(isAllowed, mayWrite(capacity, read, write, n))
                << capacity << ": " << read << ' ' << write << ' ' << n;
            if (!isAllowed) continue;
            const unsigned int unread = (write + capacity - read) % capacity;
            ASSERT_LT(unread + n, capacity) << capacity << ": " << read << ' ' << write << ' ' << n;
            ASSERT_EQ(to, (from + n) % capacity);
        }
    }
}

TEST(CircularBuffer, deliversWholeRecordsInOrderOverEveryAlignment) {
    for (const unsigned int capacity : {150U, 151U, 256U, 1000U}) {
        std::mt19937 random(capacity);
        Ring ring(capacity);
        std::string put;
        std::string got;
        int ends = 0;
        for (int i = 0; i < 20'000; ++i) {
            const std::string value(random() % 3 == 0 ? 1 : random() % (capacity / 2),
                                    static_cast<char>(random()));
            const auto size = static_cast<unsigned int>(value.size());
            if (ring.put(value, i)) {
                const unsigned int length = size + 20;
                const long long time = i;
                const long long address = 0;
                put.append(reinterpret_cast<const char*>(&length), 4);
                put.append(reinterpret_cast<const char*>(&time), 8);
                put.append(reinterpret_cast<const char*>(&address), 8);
                put.append(reinterpret_cast<const char*>(&size), 4);
                put += value;
                ends += ring.writeOffset() == 0;
            } else {
                ASSERT_TRUE(size + Overhead >= capacity / 2 || got.size() < put.size());
            }
            if (random() % 2 == 0) got += ring.get();
        }
        got += ring.get();
        ASSERT_EQ(got, put);
        EXPECT_GT(ends, 10) << "no record ended at the end of the ring";
        EXPECT_EQ(ring.get(), "");
    }
}

// Whatever the other process leaves in the offsets; the sanitizers judge the accesses.
TEST(CircularBuffer, staysInItsMemoryUnderAnyOffsets) {
    constexpr unsigned int Capacity = 200;
    for (const unsigned int read : {0U, 199U, 200U, 201U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (const unsigned int write : {0U, 199U, 200U, 0x80000000U, 0xFFFFFFFFU}) {
            Ring ring(Capacity);
            ring.readOffset() = read;
            ring.writeOffset() = write;
            EXPECT_LT(ring.get().size(), Capacity);
            ring.readOffset() = read;
            ring.writeOffset() = write;
            // A simulation is not held up: what makes no sense is forgotten.
            const bool isWritten = ring.put("x") || (ring.get(), ring.put("x"));
            EXPECT_TRUE(isWritten) << read << ' ' << write;
            EXPECT_NE(ring.get(), "") << read << ' ' << write;
        }
    }
    Ring small(0);
    EXPECT_FALSE(small.put(""));
    EXPECT_EQ(small.get(), "");
}

std::string walk(const std::string& bytes) {
    std::string seen;
    WdbLiveBatch batch(bytes.data(), static_cast<unsigned int>(bytes.size()));
    for (;;) {
        switch (batch.next()) {
            case WdbLiveBatch::Record::End:
                return seen + ".";
            case WdbLiveBatch::Record::Nonsense:
                return seen + "?";
            case WdbLiveBatch::Record::Mark:
                seen += "m" + std::to_string(batch.getTime());
                break;
            case WdbLiveBatch::Record::Event: {
                const WdbLiveEvent& event = *batch.getEvent();
                seen += "e" + std::to_string(event.m_time) +
                        std::string(reinterpret_cast<const char*>(event.getValue()),
                                    event.m_valueLength);
            }
        }
    }
}

TEST(LiveBatch, stopsAtLengthsThatMakeNoSense) {
    Ring ring(400);
    ring.put("ab", 7);
    const long long mark = 7;
    ring.buffer.putPayload(&mark, sizeof(mark));
    ring.put("", 8);
    const std::string good = ring.get();
    EXPECT_EQ(walk(good), "e7abm7e8.");
    for (std::size_t size = 1; size < good.size(); ++size) {
        const bool isWhole = size == 26 || size == 38;
        EXPECT_EQ(walk(good.substr(0, size)).back(), isWhole ? '.' : '?') << size;
    }
    for (const unsigned int length : {0U, 7U, 9U, 19U, 21U, 23U, 0x7FFFFFFFU, 0xFFFFFFFCU, ~0U}) {
        std::string bad = good;
        std::memcpy(bad.data(), &length, sizeof(length));
        EXPECT_EQ(walk(bad), "?") << length;
        bad = good;
        std::memcpy(bad.data() + 20, &length, sizeof(length));
        EXPECT_EQ(walk(bad), "?") << length;
    }
}

}  // namespace
}  // namespace Korvel
