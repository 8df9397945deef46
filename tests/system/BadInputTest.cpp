// Places that cannot hold a recording, and changes that no address space has.

#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/NumberedRecording.h"
#include "veld/OpenException.h"

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
    for (const std::string& where : {path("missing/x.wdb"), path(""), path("file/x.wdb"),
                                     std::string("/proc/x.wdb"), path(std::string(300, 'x'))}) {
        try {
            writer.open(IWdbWriter::DefaultMode, "", where, 0);
            ADD_FAILURE() << where;
        } catch (const Veld::OpenException& failure) {
            EXPECT_EQ(failure.getMessage(),
                      "Cannot create simulation database file at: " + where +
                          " Please check that this filepath is writable or specify an alternative "
                          "location using --wdb");
        }
    }
    EXPECT_EXIT(writer.open(IWdbWriter::DefaultMode, "", "/dev/full", 0),
                ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to ... file block .*: No space left on device\n$");
}

// A disk that is full, which ends the process and must cost no more than what was not checkpointed.
class FullDisk : public BadInput {
protected:
    using Progress = NumberedRecording::Progress;
    static constexpr rlim_t Room = 1'000'000;

    void recordUntilFull(const std::string& file) {
        NumberedRecording recording(file, *m_progress.operator->());
        while (m_progress->recorded < 1'000'000) {
            recording.recordNext();
            if (m_progress->recorded % 700 == 0) recording.checkpoint();
        }
    }

    void expectSound(const std::string& file) {
        EXPECT_GT(m_progress->safeEvents[0], 1000u);
        const StoredRecording byLayout = decode(readFile(file));
        NumberedRecording::expectSound(byLayout, *m_progress.operator->());
        NumberedRecording::expectSound(readWithLibrary(file), *m_progress.operator->());
    }

    SharedWithChildren<Progress> m_progress;
};

TEST_F(FullDisk, limitOfTheFileSize) {
    const auto recordWithinTheLimit = [&] {
        const rlimit limit = {Room, Room};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        recordUntilFull(path("full.wdb"));
    };
    EXPECT_EXIT(recordWithinTheLimit(), ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to add file block \\(WdbFileBlockManager\\) for the "
                "following reason: File too large\n$");
    expectSound(path("full.wdb"));
}

TEST_F(FullDisk, smallFileSystem) {
    std::filesystem::create_directory(path("disk"));
    const std::string options = "size=" + std::to_string(Room);
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", path("disk").c_str(), "tmpfs", 0, options.c_str()) != 0) {
        GTEST_SKIP() << "may not mount a file system here";
    }
    EXPECT_EXIT(recordUntilFull(path("disk/full.wdb")), ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to add file block \\(WdbFileBlockManager\\) for the "
                "following reason: No space left on device\n$");
    expectSound(path("disk/full.wdb"));
    ::umount(path("disk").c_str());
}

// Without a single address there is no place for a change; the recording goes on without it.
TEST_F(BadInput, aChangeWithoutAnyAddressIsRefused) {
    WdbStandAloneWriter writer;
    unsigned char words[8] = {};
    const auto traceVhdl = [&] { writer.getTraceVhdlFunc()(1, 0, 1, words, words); };
    const auto traceVlog = [&] { writer.getTraceVlogFunc()(1, 0, 0, words, words, 0, 1); };
    std::string recorded[2];
    for (const bool traces : {false, true}) {
        writer.open(IWdbWriter::DefaultMode, "", path("none.wdb"), 0);
        if (traces) {
            EXPECT_THROW(traceVhdl(), std::out_of_range);
            EXPECT_THROW(traceVlog(), std::out_of_range);
        }
        EXPECT_EQ(writer.addString("still there"), 1);
        writer.close();
        recorded[traces] = withoutCreationTime(readFile(path("none.wdb")));
    }
    EXPECT_EQ(recorded[0], recorded[1]);
}

TEST_F(BadInput, takesADesignOfMoreThanAMillionSignals) {
    constexpr unsigned int Signals = 1'200'000;
    constexpr unsigned int PairSize = 8;
    std::vector<unsigned char> space(Signals * PairSize);
    WdbStandAloneWriter writer;
    writer.setAddressSize(static_cast<long long>(space.size()));
    writer.setBaseDPOffset(reinterpret_cast<long long>(space.data()));
    writer.open(IWdbWriter::DefaultMode, "", path("large.wdb"), 0);
    const IWdbWriter::TraceVlogFunc trace = writer.getTraceVlogFunc();
    // Neighbours change one long after the other, so that every bucket stays open.
    for (unsigned int i = 0; i < Signals; ++i) {
        const unsigned int signal = static_cast<unsigned int>(i * 7919ull % Signals);
        unsigned char bit[PairSize] = {1};
        trace(i, 0, 0, space.data() + signal * PairSize, bit, signal % 32, signal % 32 + 1);
    }
    writer.close();

    std::vector<bool> seen(Signals);
    for (const std::vector<StoredEvent>& bucket : decode(readFile(path("large.wdb"))).buckets) {
        for (const StoredEvent& event : bucket) {
            const auto signal = static_cast<unsigned int>(event.address / PairSize);
            ASSERT_EQ(signal, event.time * 7919 % Signals);
            ASSERT_EQ(event.value, fieldOf(1ll << signal % 32));
            seen.at(signal) = true;
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), Signals);
}

}  // namespace
}  // namespace Korvel
