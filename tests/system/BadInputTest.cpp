// Places that cannot hold a recording, and changes that no address space has.

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/NumberedRecording.h"

namespace Korvel {
namespace {

class BadInput : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return m_directory.file(name); }

    TemporaryDirectory m_directory;
};

TEST_F(BadInput, refusesPathsThatCannotBeCreated) {
    writeFile(path("file"), "");
    WdbStandAloneWriter writer;
    const auto open = [&](const std::string& at) {
        writer.open(IWdbWriter::DefaultMode, "", at, 0);
    };
    for (const std::string& at : {path("missing/x.wdb"), path(""), path("file/x.wdb"),
                                  std::string("/proc/x.wdb"), path(std::string(300, 'x'))}) {
        EXPECT_THAT(openFailureOf([&] { open(at); }),
                    ::testing::HasSubstr("Cannot create simulation database file at: " + at + " "));
    }
    EXPECT_EXIT(open("/dev/full"), ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to ... file block .*: No space left on device\n$");
}

// A disk that is full ends the process, and must cost no more than what was not checkpointed.
TEST_F(BadInput, aFullDiskLeavesWhatWasCheckpointed) {
    const auto progress = NumberedRecording::sharedProgress();
    const auto recordUntilFull = [&] {
        const rlimit limit = {1'000'000, 1'000'000};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        NumberedRecording recording(path("full.wdb"), *progress);
        while (progress->recorded < 1'000'000) {
            recording.recordNext();
            if (progress->recorded % 700 == 0) recording.checkpoint();
        }
    };
    EXPECT_EXIT(recordUntilFull(), ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to add file block \\(WdbFileBlockManager\\) for the "
                "following reason: File too large\n$");
    EXPECT_GT(progress->safe, 1000);
    for (const StoredRecording& recording :
         {decode(readFile(path("full.wdb"))), readWithLibrary(path("full.wdb"))}) {
        NumberedRecording::expectSound(recording, progress->safe, progress->recorded + 1);
    }
}

// Without a single address there is no place for a change; the recording goes on without it.
TEST_F(BadInput, aChangeWithoutAnyAddressIsRefused) {
    WdbStandAloneWriter writer;
    unsigned char words[8] = {};
    writer.open(IWdbWriter::DefaultMode, "", path("none.wdb"), 0);
    const std::string bytes = readFile(path("none.wdb"));
    EXPECT_THROW(writer.getTraceVhdlFunc()(1, 0, 1, words, words), std::out_of_range);
    EXPECT_THROW(writer.getTraceVlogFunc()(1, 0, 0, words, words, 0, 1), std::out_of_range);
    writer.close();
    EXPECT_EQ(readFile(path("none.wdb")), bytes);
}

TEST_F(BadInput, takesADesignOfMoreThanAMillionSignals) {
    constexpr long long Signals = 1'200'000;
    WdbStandAloneWriter writer;
    writer.setAddressSize(8 * Signals);
    writer.open(IWdbWriter::DefaultMode, "", path("large.wdb"), 0);
    // Neighbours change one long after the other, so that every bucket stays open.
    const auto event = [](long long time) {
        return StoredEvent{time, 8 * (time * 7919 % Signals), fieldOf(time)};
    };
    for (long long time = 0; time < Signals; ++time)
        traceBytes(writer, time, event(time).address, event(time).value);
    writer.close();

    std::vector<bool> seen(Signals);
    for (const StoredEvent& stored : decode(readFile(path("large.wdb"))).allEvents()) {
        ASSERT_EQ(stored, event(stored.time));
        seen.at(static_cast<std::size_t>(stored.time)) = true;
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), Signals);
}

}  // namespace
}  // namespace Korvel
