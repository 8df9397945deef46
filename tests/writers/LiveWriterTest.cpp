#include "writers/WdbLiveWriter.h"

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TemporaryDirectory.h"
#include "transport/WdbLiveBatch.h"
#include "transport/WdbSharedMemMgr.h"

namespace Korvel {
namespace {

using Record = WdbLiveBatch::Record;

// A writer whose other side is a bare ring.
class LiveWriter : public ::testing::Test {
protected:
    LiveWriter() {
        std::filesystem::create_directories(m_directory.file("torq.dir/snap"));
        m_writer.open(IWdbWriter::LiveMode, m_directory.file("torq.dir/snap/sim"), "", 0);
        m_writer.setBaseDPOffset(reinterpret_cast<long long>(m_storage.data()) - 1000);
        m_viewer = std::make_unique<WdbSharedMemMgr>(false, m_directory.file("torq.dir/snap"), 0);
    }

    // What has been sent: "m5" for a mark, "e5@1000x8" for an event.
    std::string sent() {
        std::string text;
        unsigned int size = 0;
        m_writer.markCurrentTime(-1);
        EXPECT_TRUE(m_viewer->getPackets(m_taken.data(), size));
        WdbLiveBatch batch(m_taken.data(), size);
        for (Record record = batch.next(); record != Record::End; record = batch.next()) {
            if (record == Record::Nonsense) return text + "?";
            if (record == Record::Mark) {
                if (batch.getTime() != -1) text += "m" + std::to_string(batch.getTime()) + " ";
                continue;
            }
            const WdbLiveEvent& event = *batch.getEvent();
            text += "e" + std::to_string(event.m_time) + "@" + std::to_string(event.m_address) +
                    "x" + std::to_string(event.m_valueLength) + " ";
            m_values.assign(event.getValue(), event.getValue() + event.m_valueLength);
        }
        return text;
    }

    TemporaryDirectory m_directory;
    std::vector<unsigned char> m_storage = std::vector<unsigned char>(3000);
    WdbLiveWriter m_writer;
    std::unique_ptr<WdbSharedMemMgr> m_viewer;
    std::vector<char> m_taken = std::vector<char>(WdbSharedMemMgr::RingSize);
    std::vector<unsigned char> m_values;  // of the last event
};

TEST_F(LiveWriter, sendsEachKindOfChange) {
    unsigned char* storage = m_storage.data();
    std::vector<unsigned char> value(3000, 7);
    m_writer.getTraceVhdlFunc()(1, 0, 274, storage + 3, value.data());
    EXPECT_EQ(sent(), "e1@1003x274 ");
    m_writer.getTraceVhdlFunc()(1, 0, 275, storage, value.data());
    EXPECT_EQ(sent(), "e1@1000x137 e1@1137x138 ");
    m_writer.getTraceVhdlFunc()(1, 0, 0U - 24, storage, value.data());  // can never fit
    EXPECT_EQ(sent(), "");
    m_writer.getTraceVlogFunc()(2, 0, 0, storage + 8, value.data(), 32, 96);
    EXPECT_EQ(sent(), "e2@1016x16 ");
    m_writer.getTraceVlogFunc()(2, 0, 0, storage, value.data(), 5, 6);
    EXPECT_EQ(sent(), "e2@1000x8 ");
    EXPECT_EQ(m_values, (std::vector<unsigned char>{32, 0, 0, 0, 32, 0, 0, 0}));
    m_writer.getTraceVlogFunc()(2, 0, 0, storage, value.data(), 6, 6);
    m_writer.getTraceScObjectFunc()(3, 40, storage, value.data(), 64, 1);
    m_writer.getTraceScVirtualObjectFunc()(4, 50, value.data(), 6, 2);
    m_writer.markCurrentTime(4);
    EXPECT_EQ(sent(), "e3@56x8 e4@56x2 m4 ");
    EXPECT_EQ(m_writer.addString("text"), 0);
}

TEST_F(LiveWriter, forgetsOnRestartAndGoesWithItsRing) {
    m_writer.markCurrentTime(1);
    m_writer.restart();
    m_writer.markCurrentTime(2);
    EXPECT_EQ(sent(), "m2 ");
    m_writer.close();
    m_writer.markCurrentTime(3);
    unsigned int size = 0;
    EXPECT_FALSE(m_viewer->getPackets(m_taken.data(), size));
    EXPECT_FALSE(WdbSharedMemory::look(m_directory.file("torq.dir/snap")).isThere);
}

TEST_F(LiveWriter, neverSendsAMarkIntoAnEvent) {
    constexpr int Events = 100'000;
    constexpr int Marks = 3'000;
    std::thread tracing([&] {
        for (int i = 0; i < Events; ++i)
            m_writer.getTraceScVirtualObjectFunc()(i, 8, m_storage.data(), 0, i % 250);
    });
    std::thread marking([&] {
        for (int i = 0; i < Marks; ++i)
            m_writer.markCurrentTime(i);
    });
    int events = 0;
    int marks = 0;
    while (events < Events || marks < Marks) {
        unsigned int size = 0;
        ASSERT_TRUE(m_viewer->getPackets(m_taken.data(), size));
        WdbLiveBatch batch(m_taken.data(), size);
        for (Record record = batch.next(); record != Record::End; record = batch.next()) {
            ASSERT_NE(record, Record::Nonsense);
            if (record == Record::Mark) {
                ASSERT_EQ(batch.getTime(), marks++);
            } else {
                ASSERT_EQ(batch.getEvent()->m_time, events++);
            }
        }
    }
    tracing.join();
    marking.join();
}

TEST(LiveWriterAlone, endsTheProcessUnlessTheModeIsLive) {
    for (const int mode : {0, 2}) {
        EXPECT_EXIT(WdbLiveWriter().open(static_cast<IWdbWriter::WriterMode>(mode), "d", "f", 0),
                    ::testing::ExitedWithCode(1), "^$");
    }
}

// A kernel calls them also where no viewer is there.
TEST(LiveWriterAlone, dropsWhatIsTracedWithoutTransport) {
    WdbLiveWriter writer;
    ::testing::internal::CaptureStdout();
    writer.getTraceVhdlFunc()(1, 0, 1, nullptr, nullptr);
    writer.getTraceVlogFunc()(1, 0, 0, nullptr, nullptr, 0, 1);
    writer.getTraceScObjectFunc()(1, 0, nullptr, nullptr, 0, 1);
    writer.getTraceScVirtualObjectFunc()(1, 0, nullptr, 0, 1);
    writer.markCurrentTime(1);
    writer.restart();
    writer.close();
    writer.getTraceVhdlFuncScalar()(1, 0, 1, nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "trace vhdl scalar called\n");
}

}  // namespace
}  // namespace Korvel
