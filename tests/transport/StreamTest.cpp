// Two real processes on the two sides of a ring.

#include <csignal>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Await.h"
#include "tests/support/TemporaryDirectory.h"
#include "transport/WdbLiveBatch.h"
#include "transport/WdbLivePacketContainer.h"
#include "transport/WdbSharedMemMgr.h"

namespace Korvel {
namespace {

constexpr int SmallRing = 10'007;
constexpr int Endless = 1'000'000'000;

// Numbered values of all sizes: time is the number, each byte follows from number and place.
class NumberedStream {
public:
    static unsigned int sizeOf(long long number) {
        const auto mixed = static_cast<unsigned long long>(number) * 0x9E3779B97F4A7C15;
        return static_cast<unsigned int>((mixed >> 32) % 275);
    }
    static unsigned char byteOf(long long number, unsigned int i) {
        return static_cast<unsigned char>(number * 31 + i);
    }

    static void send(WdbSharedMemMgr& ring, long long from, long long count) {
        std::vector<unsigned char> value(300);
        for (long long number = from; number < from + count; ++number) {
            const unsigned int size = sizeOf(number);
            for (unsigned int i = 0; i < size; ++i)
                value[i] = byteOf(number, i);
            WdbLivePacketContainer event{number, size, 0, value.data()};
            if (!ring.putPacket(&event)) return;
            if (number % 64 == 0) ring.putPacketMarkTime(number);
        }
    }

    // Checks a batch. Numbers follow each other but where a new run, or what a full ring forgot,
    // lies between.
    void take(const std::vector<char>& bytes, unsigned int size) {
        WdbLiveBatch batch(bytes.data(), size);
        for (WdbLiveBatch::Record record = batch.next(); record != WdbLiveBatch::Record::End;
             record = batch.next()) {
            ASSERT_NE(record, WdbLiveBatch::Record::Nonsense);
            if (record == WdbLiveBatch::Record::Mark) {
                ASSERT_EQ(batch.getTime() % 64, 0);
                continue;
            }
            const WdbLiveEvent& event = *batch.getEvent();
            ASSERT_EQ(event.m_valueLength, sizeOf(event.m_time));
            for (unsigned int i = 0; i < event.m_valueLength; ++i)
                ASSERT_EQ(event.getValue()[i], byteOf(event.m_time, i));
            if (event.m_time != m_next) ++m_gaps;
            m_next = event.m_time + 1;
        }
    }

    long long next() const { return m_next; }
    int gaps() const { return m_gaps; }

private:
    long long m_next = 0;
    int m_gaps = 0;
};

class Child {
public:
    explicit Child(const std::function<void()>& run) : m_pid(::fork()) {
        if (m_pid != 0) return;
        run();
        ::_exit(0);
    }
    ~Child() { kill(); }
    Child(Child&& other) noexcept : m_pid(std::exchange(other.m_pid, 0)) {}
    int wait() {
        int status = -1;
        if (m_pid > 0) ::waitpid(std::exchange(m_pid, 0), &status, 0);
        return status;
    }
    void kill() {
        if (m_pid > 0) ::kill(m_pid, SIGKILL);
        wait();
    }

private:
    pid_t m_pid;
};

class Stream : public ::testing::Test {
protected:
    // A simulator that has its ring when this returns, and begins with a number.
    Child simulate(long long from, long long count, int ringSize) const {
        Child child([=, this] {
            WdbSharedMemMgr ring(true, m_path, 0, ringSize);
            NumberedStream::send(ring, from, count);
        });
        EXPECT_TRUE(becomesTrue([&] { return WdbSharedMemory::look(m_path).hasSimulator; }));
        return child;
    }

    TemporaryDirectory m_directory;
    const std::string m_path = m_directory.file(".");
    std::vector<char> m_taken = std::vector<char>(WdbSharedMemMgr::RingSize);
};

TEST_F(Stream, deliversEveryRecordToAnotherProcess) {
    struct Run {
        int ringSize;
        long long count;
    };
    for (const Run& run : {Run{WdbSharedMemMgr::RingSize, 1'000'000}, Run{SmallRing, 5'000}}) {
        Child simulator = simulate(0, run.count, run.ringSize);
        WdbSharedMemMgr viewer(false, m_path, 0, run.ringSize);
        NumberedStream stream;
        unsigned int available = 0;
        while (viewer.getPackets(m_taken.data(), available))
            ASSERT_NO_FATAL_FAILURE(stream.take(m_taken, available));
        EXPECT_EQ(stream.next(), run.count);
        EXPECT_EQ(stream.gaps(), 0);
        EXPECT_EQ(simulator.wait(), 0);
    }
}

TEST_F(Stream, endsWhenTheSimulatorIsKilledAndBeginsWithTheNextOne) {
    for (int kill = 0; kill < 12; ++kill) {
        const long long first = 1'000'000ll * kill;
        Child simulator = simulate(first, Endless, SmallRing);
        WdbSharedMemMgr viewer(false, m_path, 0, SmallRing);
        NumberedStream stream;
        unsigned int available = 0;
        for (int batch = 0; viewer.getPackets(m_taken.data(), available); ++batch) {
            ASSERT_NO_FATAL_FAILURE(stream.take(m_taken, available));
            if (batch == kill % 4) simulator.kill();
        }
        EXPECT_GT(stream.next(), first);
        EXPECT_EQ(stream.gaps(), kill == 0 ? 0 : 1) << "but for the first number";
    }
}

TEST_F(Stream, goesOnWhenTheViewerIsKilledAndServesTheNextOne) {
    Child simulator = simulate(0, Endless, SmallRing);
    long long reached = 0;
    for (int kill = 0; kill < 12; ++kill) {
        ASSERT_TRUE(becomesTrue([&] { return WdbSharedMemory::look(m_path).isThere; }));
        Child viewer([&] {
            WdbSharedMemMgr ring(false, m_path, 0, SmallRing);
            NumberedStream stream;
            unsigned int available = 0;
            while (ring.getPackets(m_taken.data(), available))
                stream.take(m_taken, available);
        });
        ASSERT_TRUE(becomesTrue([&] { return WdbSharedMemory::look(m_path).hasViewer; }));
        ::usleep(static_cast<useconds_t>(997 * kill));
        viewer.kill();
        WdbSharedMemMgr next(false, m_path, 0, SmallRing);
        NumberedStream stream;
        unsigned int available = 0;
        for (int batch = 0; batch < 3; ++batch) {
            ASSERT_TRUE(next.getPackets(m_taken.data(), available));
            ASSERT_NO_FATAL_FAILURE(stream.take(m_taken, available));
        }
        EXPECT_LE(stream.gaps(), 2) << "where it begins, and where a full ring was forgotten";
        EXPECT_GT(stream.next(), reached);
        reached = stream.next();
        // This one goes too, and takes the name with it: the simulator makes a new ring.
    }
    simulator.kill();
}

}  // namespace
}  // namespace Korvel
