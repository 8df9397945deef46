// What a simulator leaves that is killed or finds the disk full, and what a reader sees beside it.

#include <chrono>
#include <csignal>
#include <map>
#include <random>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "container/WdbAppendingBlockList.h"
#include "drawing/WdbBlockSearch.h"
#include "tests/support/FileBytes.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/NumberedRecording.h"

namespace Korvel {
namespace {

class KilledRecording : public ::testing::TestWithParam<int> {
protected:
    // Runs @p body in a process of its own.
    template <typename Body>
    static pid_t start(Body&& body) {
        const pid_t child = ::fork();
        if (child != 0) return child;
        body();
        ::_exit(0);
    }

    static bool isRunning(pid_t child) {
        siginfo_t ended = {};
        ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT);
        return ended.si_pid == 0;
    }

    TemporaryDirectory m_directory;
    const std::string m_path = m_directory.file("recording.wdb");
    const std::shared_ptr<NumberedRecording::Progress> m_progress =
        NumberedRecording::sharedProgress();
};
INSTANTIATE_TEST_SUITE_P(Types, KilledRecording, ::testing::Values(MultipleBucket, MultipleBtree),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

// A search finds what going through all events does.
void expectPointQueries(const std::string& path, const StoredRecording& all, std::mt19937& random) {
    const RecordingReader reader(path);
    WdbBlockSearch search(*reader.events);
    for (int question = 0; question < 20; ++question) {
        const std::size_t bucket = random() % all.buckets.size();
        const auto address = static_cast<long long>(2048 * bucket + random() % 2048);
        const long long time = random() % (all.latestTime + 9);
        int expected = 0;
        for (const auto& [when, first, value] : all.buckets[bucket]) {
            if (when <= time && first <= address && address < first + std::ssize(value))
                expected = 256 + static_cast<unsigned char>(value[address - first]);
        }
        std::vector<WdbByteValue> found;
        search.getValues(time, {{address}}, found);
        EXPECT_EQ(256 * found[0].type + found[0].value, expected) << address << " at " << time;
    }
}

// The moment follows from how far the recording is, and falls anywhere in what the process does
// then: filling, storing, checkpointing.
TEST_P(KilledRecording, holdsAllThatWasCheckpointed) {
    constexpr int Rounds = 40;
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < Rounds && !HasFailure(); ++round) {
        // Every fourth is long enough for second list nodes.
        const long long moment = random() % (round % 4 == 0 ? 40'000 : 8'000);
        const long long eventsACheckpoint = 1 + random() % 300;
        SCOPED_TRACE(::testing::Message() << "round " << round << " at event " << moment);
        m_progress->recorded = m_progress->safe = 0;
        const pid_t child = start([&] {
            NumberedRecording recording(m_path, *m_progress, GetParam());
            while (true) {
                recording.recordNext();
                if (m_progress->recorded % eventsACheckpoint == 0) recording.checkpoint();
            }
        });
        while (m_progress->recorded <= moment && isRunning(child))
            ::sched_yield();
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));

        const StoredRecording byLayout = decode(readFile(m_path));
        NumberedRecording::expectSound(byLayout, m_progress->safe, m_progress->recorded + 1);
        const StoredRecording byLibrary = readWithLibrary(m_path);
        EXPECT_TRUE(byLibrary.buckets == byLayout.buckets);
        EXPECT_EQ(byLibrary.strings, byLayout.strings);
        EXPECT_GE(byLibrary.latestTime, byLayout.latestTime);
        expectPointQueries(m_path, byLayout, random);
    }
}

// A disk that is full ends the process, and must cost no more than what was not checkpointed.
TEST_P(KilledRecording, holdsWhatWasCheckpointedBeforeTheDiskWasFull) {
    const auto recordUntilFull = [&] {
        fillDisk(1'000'000);
        NumberedRecording recording(m_path, *m_progress, GetParam());
        while (m_progress->recorded < 1'000'000) {
            recording.recordNext();
            if (m_progress->recorded % 700 == 0) recording.checkpoint();
        }
    };
    EXPECT_EXIT(recordUntilFull(), ::testing::ExitedWithCode(1),
                "^WDB FATAL ERROR: failed to add file block \\(WdbFileBlockManager\\) for the "
                "following reason: File too large\n$");
    EXPECT_GT(m_progress->safe, 1000);
    for (const StoredRecording& recording : {decode(readFile(m_path)), readWithLibrary(m_path)}) {
        NumberedRecording::expectSound(recording, m_progress->safe, m_progress->recorded + 1);
    }
}

// Keeps every write that was made to it, for it to be played again up to any point.
struct ReplayedStore : public WdbIBlockManager, public WdbIHandleCheck {
    long long addBlock(const char* data, unsigned long long size) override {
        const auto end = static_cast<long long>(m_bytes.size());
        putBlock(end, data, size);
        return end;
    }
    void getBlock(long long handle, char* buffer, unsigned long long size) const override {
        m_bytes.copy(buffer, size, static_cast<std::size_t>(handle));
    }
    void putBlock(long long handle, const char* data, unsigned long long size) override {
        m_writes.emplace_back(handle, std::string(data, size));
        apply(handle, m_writes.back().second);
    }
    void freeBlock(long long, unsigned long long) override {}
    bool mayFollow(long long handle, unsigned long long size) const override {
        return handle >= 0 && static_cast<std::size_t>(handle) + size <= m_bytes.size();
    }

    void apply(long long handle, const std::string& bytes) {
        const auto offset = static_cast<std::size_t>(handle);
        m_bytes.resize(std::max(m_bytes.size(), offset + bytes.size()));
        m_bytes.replace(offset, bytes.size(), bytes);
    }

    std::string m_bytes = std::string(16, '\0');
    std::vector<std::pair<long long, std::string>> m_writes;
};

// The machine's kernel may end a killed process between the two pages that a node lies in, so that
// only the first part of a write is made. Whatever was written last and however much of it, the
// list must show what was flushed, and no entry without those before it.
TEST(KilledList, isSoundAfterAnyPartOfItsWrites) {
    using List = WdbAppendingBlockList<WdbEventBlock, 4>;
    constexpr std::size_t Slot = 8;
    ReplayedStore store;
    List list(store, Slot, 0, 0);
    std::map<std::size_t, unsigned int> flushed = {{0, 0}};  // writes made, entries then flushed
    for (unsigned int entry = 1; entry <= 30; ++entry) {
        list.append(entry, entry);
        if (entry % 3 != 0 && entry % 7 != 0) continue;
        list.flush();
        flushed[store.m_writes.size()] = entry;
    }
    ReplayedStore replayed;
    for (std::size_t made = 0; made < store.m_writes.size(); ++made) {
        const auto& [handle, bytes] = store.m_writes[made];
        for (std::size_t part = 0; part <= bytes.size(); part += 4) {
            ReplayedStore cutShort = replayed;
            cutShort.apply(handle, bytes.substr(0, part));
            unsigned int entries = 0;
            List::Walker walker(cutShort, readHandleSlot(cutShort, Slot));
            for (bool more = walker.isAtNode(); more; more = walker.next()) {
                for (unsigned int i = 0; i < walker.node().m_count; ++i)
                    ASSERT_EQ(walker.node().entry(i).handle, ++entries) << made << ": " << part;
            }
            ASSERT_GE(entries, std::prev(flushed.upper_bound(made))->second);
        }
        replayed.apply(handle, bytes);
    }
}

// The process only goes on as fast as it is read, but checkpoints without a pause, so that every
// look at the file meets one.
TEST_P(KilledRecording, aReaderBesideTheWriterSeesOneStateAfterAnother) {
    constexpr long long Looks = 20;
    constexpr long long EventsALook = 900;
    const pid_t child = start([&] {
        NumberedRecording recording(m_path, *m_progress, GetParam());
        while (m_progress->recorded < Looks * EventsALook) {
            if (m_progress->recorded < m_progress->wanted) recording.recordNext();
            recording.checkpoint();
        }
    });
    m_progress->wanted = 1;
    while (m_progress->safe == 0 && isRunning(child))
        ::sched_yield();
    RecordingReader first(m_path);  // asked again and again
    StoredRecording before = first.read();
    for (long long look = 1; look <= Looks && !HasFailure(); ++look) {
        SCOPED_TRACE(look);
        m_progress->wanted = look * EventsALook;
        const long long safe = m_progress->safe;
        const StoredRecording now = readWithLibrary(m_path);
        StoredRecording again = first.read();
        again.latestTime = now.latestTime;
        for (const StoredRecording& seen : {now, again})
            NumberedRecording::expectSound(seen, safe, m_progress->recorded + 1);
        for (std::size_t bucket = 0; bucket < now.buckets.size(); ++bucket) {
            EXPECT_GE(now.buckets[bucket].size(), before.buckets[bucket].size());
            EXPECT_GE(again.buckets[bucket].size(), now.buckets[bucket].size());
        }
        EXPECT_GE(now.strings.size(), before.strings.size());
        EXPECT_GE(now.latestTime, before.latestTime);
        before = now;
    }
    m_progress->wanted = Looks * EventsALook;
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(readWithLibrary(m_path).allEvents().size(), 1u * Looks * EventsALook);
}

// A kernel cannot ask for a checkpoint: its time marks must lead to one. Too few blocks for a list
// node to be full, which is written at once; ends when the marks have shown them, however long the
// clock takes.
TEST_P(KilledRecording, timeMarksLeadToCheckpoints) {
    NumberedRecording recording(m_path, *m_progress, GetParam());
    while (m_progress->recorded < 10'000)
        recording.recordNext();
    const auto patience = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (readWithLibrary(m_path).buckets[2].empty()) {
        ASSERT_LT(std::chrono::steady_clock::now(), patience);
        for (int i = 0; i < 1'000; ++i)
            recording.writer().markCurrentTime(m_progress->recorded - i % 2);
    }
    NumberedRecording::expectSound(decode(readFile(m_path)), 0, m_progress->recorded);
}

}  // namespace
}  // namespace Korvel
