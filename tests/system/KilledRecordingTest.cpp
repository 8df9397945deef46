// What a simulator leaves that is killed, and what a reader sees of one that still runs.

#include <chrono>
#include <csignal>
#include <map>
#include <random>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "container/WdbAppendingBlockList.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/NumberedRecording.h"

namespace Korvel {
namespace {

using Progress = NumberedRecording::Progress;

class KilledRecording : public ::testing::Test {
protected:
    // Runs @p body in a process of its own.
    template <typename Body>
    static pid_t start(Body&& body) {
        const pid_t child = ::fork();
        if (child != 0) return child;
        body();
        ::_exit(0);
    }

    // True as long as the process runs; afterwards its wait status is in @p status.
    static bool isRunning(pid_t child, int& status) {
        return ::waitpid(child, &status, WNOHANG) == 0;
    }

    std::string path() const { return m_directory.file("recording.wdb"); }

    TemporaryDirectory m_directory;
};

// The moment follows from how far the recording is, and falls anywhere in what the process does
// then: filling, storing, checkpointing.
TEST_F(KilledRecording, holdsAllThatWasCheckpointed) {
    constexpr int Rounds = 64;
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < Rounds && !HasFailure(); ++round) {
        // Every fourth is long enough for a second list node.
        const long long moment = random() % (round % 4 == 0 ? 40'000 : 8'000);
        const long long eventsACheckpoint = 1 + random() % 300;
        SCOPED_TRACE(::testing::Message() << "round " << round << " at event " << moment);
        SharedWithChildren<Progress> progress;
        const pid_t child = start([&] {
            NumberedRecording recording(path(), *progress.operator->());
            while (true) {
                recording.recordNext();
                if (progress->recorded % eventsACheckpoint == 0) recording.checkpoint();
            }
        });
        int status = 0;
        while (progress->recorded <= moment && isRunning(child, status))
            ::sched_yield();
        ASSERT_EQ(::kill(child, SIGKILL), 0);
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));

        const StoredRecording byLayout = decode(readFile(path()));
        NumberedRecording::expectSound(byLayout, *progress.operator->());
        const StoredRecording byLibrary = readWithLibrary(path());
        NumberedRecording::expectSound(byLibrary, *progress.operator->());
        EXPECT_EQ(byLibrary.allEvents().size(), byLayout.allEvents().size());
        EXPECT_EQ(byLibrary.strings.size(), byLayout.strings.size());
    }
}

// Keeps every write that was made to it, and plays them again up to any point.
class ReplayedStore : public WdbIBlockManager, public WdbIHandleCheck {
public:
    struct Write {
        std::size_t offset;
        std::string bytes;
    };

    explicit ReplayedStore(std::size_t size) : m_bytes(size, '\0') {}

    long long addBlock(const char* data, unsigned long long size) override {
        putBlock(static_cast<long long>(m_bytes.size()), data, size);
        return static_cast<long long>(m_bytes.size() - size);
    }
    void getBlock(long long handle, char* buffer, unsigned long long size) const override {
        m_bytes.copy(buffer, size, static_cast<std::size_t>(handle));
    }
    void putBlock(long long handle, const char* data, unsigned long long size) override {
        m_writes.push_back({static_cast<std::size_t>(handle), {data, size}});
        apply(m_writes.back(), size);
    }
    void freeBlock(long long, unsigned long long) override {}
    bool mayFollow(long long handle, unsigned long long size) const override {
        return handle >= 0 && static_cast<std::size_t>(handle) + size <= m_bytes.size();
    }

    void apply(const Write& write, std::size_t size) {
        m_bytes.resize(std::max(m_bytes.size(), write.offset + size));
        m_bytes.replace(write.offset, size, write.bytes, 0, size);
    }
    const std::vector<Write>& writes() const { return m_writes; }

private:
    std::string m_bytes;
    std::vector<Write> m_writes;
};

// The machine's kernel may end a killed process between the two pages that a node lies in, so that
// only the first part of a write is made. Whatever was written last and however much of it, the
// list must show what was flushed, and no entry without those before it.
TEST(KilledList, isSoundAfterAnyPartOfItsWrites) {
    using List = WdbAppendingBlockList<WdbEventBlock, 4>;
    constexpr std::size_t Slot = 8;
    ReplayedStore store(Slot + 8);
    List list(store, Slot, 0, 0);
    std::map<std::size_t, unsigned int> flushed = {{0, 0}};  // writes made, entries then flushed
    for (unsigned int entry = 1; entry <= 30; ++entry) {
        list.append(entry, entry);
        if (entry % 3 != 0 && entry % 7 != 0) continue;
        list.flush();
        flushed[store.writes().size()] = entry;
    }
    ReplayedStore replayed(Slot + 8);
    for (std::size_t made = 0; made < store.writes().size(); ++made) {
        const ReplayedStore::Write& last = store.writes()[made];
        for (std::size_t part = 0; part <= last.bytes.size(); part += 4) {
            ReplayedStore cutShort = replayed;
            cutShort.apply(last, part);
            unsigned int entries = 0;
            List::Walker walker(cutShort, readHandleSlot(cutShort, Slot));
            for (bool more = walker.isAtNode(); more; more = walker.next()) {
                for (unsigned int i = 0; i < walker.node().m_count; ++i)
                    ASSERT_EQ(walker.node().entry(i).handle, ++entries) << made << ": " << part;
            }
            ASSERT_GE(entries, std::prev(flushed.upper_bound(made))->second);
        }
        replayed.apply(last, last.bytes.size());
    }
}

// The process only goes on as fast as it is read, but checkpoints without a pause, so that every
// look at the file meets one.
TEST_F(KilledRecording, aReaderBesideTheWriterSeesOneStateAfterAnother) {
    constexpr long long Looks = 40;
    constexpr long long EventsALook = 900;
    SharedWithChildren<Progress> progress;
    const pid_t child = start([&] {
        NumberedRecording recording(path(), *progress.operator->());
        while (progress->recorded < Looks * EventsALook) {
            if (progress->recorded < progress->wanted) recording.recordNext();
            recording.checkpoint();
        }
        recording.close();
    });
    int status = 0;
    while (progress->safeTime == 0 && isRunning(child, status)) {
        progress->wanted = 2;
        ::sched_yield();
    }
    std::vector<std::size_t> before(NumberedRecording::Buckets);
    long long latestTime = 0;
    for (long long look = 1; look <= Looks && !HasFailure(); ++look) {
        SCOPED_TRACE(look);
        progress->wanted = look * EventsALook;
        const std::size_t safe = progress->safeEvents[0];
        const StoredRecording recording = readWithLibrary(path());
        ASSERT_EQ(recording.buckets.size(), before.size());
        EXPECT_GE(recording.buckets[0].size(), safe);
        for (std::size_t bucket = 0; bucket < before.size(); ++bucket) {
            const std::vector<StoredEvent>& events = recording.buckets[bucket];
            EXPECT_GE(events.size(), before[bucket]);
            EXPECT_TRUE(events == NumberedRecording::firstEvents(bucket, events.size()));
            before[bucket] = events.size();
        }
        for (std::size_t id = 1; id <= recording.strings.size(); ++id)
            EXPECT_EQ(recording.strings[id - 1], NumberedRecording::string(id));
        EXPECT_GE(recording.latestTime, latestTime);
        latestTime = recording.latestTime;
    }
    progress->wanted = Looks * EventsALook;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const StoredRecording finished = readWithLibrary(path());
    EXPECT_EQ(finished.allEvents().size(), static_cast<std::size_t>(Looks * EventsALook));
    EXPECT_EQ(finished.allEvents(), decode(readFile(path())).allEvents());
}

// A kernel cannot ask for a checkpoint: its time marks must lead to one. Too few blocks for a list
// node to be full, which is written at once; ends when the marks have shown them, however long the
// clock takes.
TEST_F(KilledRecording, timeMarksLeadToCheckpoints) {
    SharedWithChildren<Progress> progress;
    NumberedRecording recording(path(), *progress.operator->());
    while (progress->recorded < 15'000)
        recording.recordNext();
    const auto patience = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (readWithLibrary(path()).buckets[2].empty()) {
        ASSERT_LT(std::chrono::steady_clock::now(), patience);
        for (int i = 0; i < 1'000; ++i)
            recording.mark(progress->recorded - i % 2);
    }
    NumberedRecording::expectSound(decode(readFile(path())), *progress.operator->());
}

}  // namespace
}  // namespace Korvel
