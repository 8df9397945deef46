#include "transport/WdbSharedMemory.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "tests/support/Await.h"
#include "tests/support/TemporaryDirectory.h"
#include "transport/WdbLivePacketContainer.h"
#include "transport/WdbSharedMemMgr.h"
#include "transport/WdbWaitingViewer.h"

namespace Korvel {
namespace {

constexpr bool Simulator = true;
constexpr bool Viewer = false;

class SharedMemory : public ::testing::Test {
protected:
    std::string said(const std::function<void()>& action) {
        ::testing::internal::CaptureStderr();
        action();
        return ::testing::internal::GetCapturedStderr();
    }
    static bool putValue(WdbSharedMemMgr& ring, unsigned int size) {
        std::vector<unsigned char> value(size);
        WdbLivePacketContainer event{1, size, 0, value.data()};
        return ring.putPacket(&event);
    }

    TemporaryDirectory m_directory;
    const std::string m_path = m_directory.file(".");
};

TEST_F(SharedMemory, isNamedAfterTheDirectoryHoweverItIsReached) {
    struct stat status = {};
    ASSERT_EQ(::stat(m_path.c_str(), &status), 0);
    const std::string name = "/" + std::to_string(status.st_dev) + std::to_string(status.st_ino);
    std::filesystem::create_directory_symlink(m_path, m_directory.file("link"));
    EXPECT_EQ(createName(m_path), name);
    EXPECT_EQ(createName(m_directory.file("link/./")), name);
    EXPECT_EQ(createName(std::filesystem::relative(m_path)), name);
    EXPECT_EQ(said([&] { EXPECT_EQ(createName(m_directory.file("none")), ""); }),
              "stat: No such file or directory\n");
}

TEST_F(SharedMemory, hasTheLayoutThatBothSidesAgreeOn) {
    WdbSharedMemMgr simulator(Simulator, m_path, 0);
    const std::string object = "/dev/shm" + simulator.getMemory().getName();
    EXPECT_EQ(std::filesystem::file_size(object), 8'192'008U);
    ASSERT_TRUE(simulator.putPacketMarkTime(0x0102030405060708));
    ASSERT_TRUE(putValue(simulator, 3));
    const char* memory = simulator.getMemory().getAddress();
    EXPECT_EQ(std::memcmp(memory,
                          "\x27\0\0\0\0\0\0\0\x08\0\0\0\x08\x07\x06\x05\x04\x03\x02\x01"
                          "\x17\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x03\0\0\0",
                          44),
              0);
    simulator.clear();
    EXPECT_EQ(std::memcmp(memory, "\0\0\0\0\0\0\0\0", 8), 0);
}

TEST_F(SharedMemory, missingAnswersAtOnceAndSaysWhy) {
    char byte = 0;
    unsigned int available = 1;
    EXPECT_EQ(said([&] {
                  WdbSharedMemMgr viewer(Viewer, m_path, 0);
                  EXPECT_FALSE(viewer.getPackets(&byte, available));
                  EXPECT_EQ(available, 0U);
                  EXPECT_FALSE(putValue(viewer, 1));
                  EXPECT_FALSE(viewer.putPacketMarkTime(1));
                  EXPECT_FALSE(viewer.putPacket(&byte, 1));
                  viewer.restart();
                  viewer.clear();
              }),
              "shm_open: No such file or directory\n");
    EXPECT_EQ(said([&] { WdbSharedMemory(2, 100, m_path, 0); }), "");
}

TEST_F(SharedMemory, refusesASecondViewer) {
    WdbSharedMemMgr simulator(Simulator, m_path, 0);
    WdbSharedMemMgr first(Viewer, m_path, 0);
    EXPECT_EQ(said([&] {
                  WdbSharedMemMgr second(Viewer, m_path, 0);
                  EXPECT_TRUE(second.getMemory().isTaken());
              }),
              "");
    EXPECT_TRUE(first.getMemory().isNamed()) << "the refused one took the name away";
    const WdbSharedMemory::Presence presence = WdbSharedMemory::look(m_path);
    EXPECT_TRUE(presence.isThere && presence.hasSimulator && presence.hasViewer);
}

TEST_F(SharedMemory, givesWhatWasSentBeforeTheSimulatorLeft) {
    auto simulator = std::make_unique<WdbSharedMemMgr>(Simulator, m_path, 0);
    WdbSharedMemMgr viewer(Viewer, m_path, 0);
    ASSERT_TRUE(putValue(*simulator, 10));
    simulator.reset();
    EXPECT_FALSE(WdbSharedMemory::look(m_path).isThere);
    std::vector<char> taken(WdbSharedMemMgr::RingSize);
    unsigned int available = 0;
    EXPECT_TRUE(viewer.getPackets(taken.data(), available));
    EXPECT_EQ(available, 34U);
    EXPECT_FALSE(viewer.getPackets(taken.data(), available));
    // The name belongs to another simulation by now.
    WdbSharedMemMgr next(Simulator, m_path, 0);
    WdbSharedMemMgr third(Simulator, m_path, 0);
    EXPECT_FALSE(next.getMemory().isNamed());
}

TEST_F(SharedMemory, goesOnWithoutAViewerThatLeft) {
    constexpr int RingSize = 4096;
    constexpr unsigned int Size = 1000;
    std::vector<char> taken(RingSize);
    unsigned int available = 0;
    WdbSharedMemMgr simulator(Simulator, m_path, 0, RingSize);
    {
        WdbSharedMemMgr viewer(Viewer, m_path, 0, RingSize);
        ASSERT_TRUE(putValue(simulator, Size));
        ASSERT_TRUE(viewer.getPackets(taken.data(), available));
    }
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(putValue(simulator, Size));
    // It took the name away; the next one finds a ring again, with what came since.
    ASSERT_TRUE(becomesTrue(
        [&] { return WdbSharedMemory::look(m_path).isThere || !simulator.putPacketMarkTime(1); }));
    WdbSharedMemMgr viewer(Viewer, m_path, 0, RingSize);
    EXPECT_TRUE(viewer.getPackets(taken.data(), available));
    EXPECT_LT(available, 4 * (Size + 24));
}

TEST_F(SharedMemory, keepsWhatWaitsWhenItsNameIsTakenAway) {
    WdbSharedMemMgr simulator(Simulator, m_path, 0);
    ASSERT_TRUE(putValue(simulator, 10));
    ::shm_unlink(simulator.getMemory().getName().c_str());
    ASSERT_TRUE(becomesTrue(
        [&] { return WdbSharedMemory::look(m_path).isThere || !simulator.putPacketMarkTime(1); }));
    WdbSharedMemMgr viewer(Viewer, m_path, 0);
    std::vector<char> taken(WdbSharedMemMgr::RingSize);
    unsigned int available = 0;
    ASSERT_TRUE(viewer.getPackets(taken.data(), available));
    EXPECT_EQ(available % 12, 34U % 12) << "a value and marks";
    EXPECT_EQ(taken[0], 30);
}

TEST_F(SharedMemory, waitsForAFirstViewerUntilItIsShutDown) {
    constexpr int RingSize = 4096;
    WdbSharedMemMgr simulator(Simulator, m_path, 0, RingSize);
    EXPECT_FALSE(putValue(simulator, RingSize / 2)) << "can never fit";
    int put = 0;
    std::thread thread([&] {
        while (putValue(simulator, 1000))
            ++put;
    });
    simulator.shutDown();
    thread.join();
    EXPECT_LE(put, 3);
    simulator.prepareForStart();
    simulator.clear();
    EXPECT_TRUE(putValue(simulator, 1000));
}

TEST_F(SharedMemory, tellsWhetherAViewerWaits) {
    EXPECT_FALSE(WdbWaitingViewer::isThere(m_path));
    {
        const WdbWaitingViewer one(m_path);
        const WdbWaitingViewer two(m_directory.file("."));
        EXPECT_TRUE(WdbWaitingViewer::isThere(m_path));
    }
    EXPECT_FALSE(WdbWaitingViewer::isThere(m_path));
    EXPECT_FALSE(WdbWaitingViewer::isThere(m_directory.file("none")));
    const WdbWaitingViewer nowhere(m_directory.file("none"));
}

}  // namespace
}  // namespace Korvel
