// A place that cannot hold a recording, and a design of unusual size.

#include <algorithm>
#include <csignal>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/NumberedRecording.h"

namespace Korvel {
namespace {

struct BadInput : ::testing::Test {
    TemporaryDirectory m_directory;
    const std::string m_path = m_directory.file("recording.wdb");
};

// A disk that is full ends the process, and must cost no more than what was not checkpointed.
TEST_F(BadInput, aFullDiskLeavesWhatWasCheckpointed) {
    const auto progress = NumberedRecording::sharedProgress();
    const auto recordUntilFull = [&] {
        const rlimit limit = {1'000'000, 1'000'000};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        NumberedRecording recording(m_path, *progress);
        while (progress->recorded < 1'000'000) {
            recording.recordNext();
            if (progress->recorded % 700 == 0) recording.checkpoint();
        }
    };
    EXPECT_EXIT(recordUntilFull(), ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to add file block \\(WdbFileBlockManager\\) for the "
                "following reason: File too large\n$");
    EXPECT_GT(progress->safe, 1000);
    for (const StoredRecording& recording : {decode(readFile(m_path)), readWithLibrary(m_path)}) {
        NumberedRecording::expectSound(recording, progress->safe, progress->recorded + 1);
    }
}

TEST_F(BadInput, takesADesignOfMoreThanAMillionSignals) {
    constexpr long long Signals = 1'200'000;
    WdbStandAloneWriter writer;
    writer.setAddressSize(8 * Signals);
    writer.open(IWdbWriter::DefaultMode, "", m_path, 0);
    // Neighbours change one long after the other, so that every bucket stays open.
    const auto event = [](long long time) {
        return StoredEvent{time, 8 * (time * 7919 % Signals), fieldOf(time)};
    };
    for (long long time = 0; time < Signals; ++time)
        traceBytes(writer, time, event(time).address, event(time).value);
    writer.close();

    std::vector<bool> seen(Signals);
    for (const StoredEvent& stored : decode(readFile(m_path)).allEvents()) {
        ASSERT_EQ(stored, event(stored.time));
        seen.at(static_cast<std::size_t>(stored.time)) = true;
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), Signals);
}

}  // namespace
}  // namespace Korvel
