#pragma once

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/system/LibraryAccess.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {

// A recording in which every event and every string follows from its number, and is as long as
// every other, so that a reader knows what must be there however it ended.
class NumberedRecording {
public:
    // What the recording process tells, also when it was killed.
    struct Progress {
        std::atomic<long long> recorded = 0;  // events
        std::atomic<long long> safe = 0;      // events when the last checkpoint began
        std::atomic<long long> wanted = 0;    // events that the process may record by now
    };

    static std::shared_ptr<Progress> sharedProgress() {
        void* memory = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        return {new (memory) Progress, [](Progress* p) { ::munmap(p, sizeof(Progress)); }};
    }

    NumberedRecording(const std::string& path, Progress& progress, int databaseType)
        : m_progress(progress) {
        m_writer.setDatabaseType(databaseType);
        m_writer.setAddressSize(Buckets * BucketSize);
        m_writer.open(IWdbWriter::DefaultMode, "none/sim", path, 0);
    }

    void recordNext() {
        const long long number = m_progress.recorded;
        const RecordedEvent next = event(number);
        traceBytes(m_writer, next.time, next.address, next.value);
        if (number % EventsAString == 0) m_writer.addString(string(number / EventsAString));
        m_writer.markCurrentTime(number);
        m_progress.recorded = number + 1;
    }
    // From here on a killed recording must hold what is stored now.
    void checkpoint() {
        m_writer.checkpoint();
        m_progress.safe = m_progress.recorded.load();
    }
    WdbStandAloneWriter& writer() { return m_writer; }

    // Whether a file holds of so many events a part without gaps, at least the blocks that were
    // full with the first @p safe ones.
    static void expectSound(const StoredRecording& recording, long long safe, long long recorded) {
        std::vector<RecordedEvent> events[Buckets];
        long long safeEvents[Buckets] = {};
        for (long long number = 0; number < recorded; ++number) {
            events[bucketOf(number)].push_back(event(number));
            if (number < safe) ++safeEvents[bucketOf(number)];
        }
        ASSERT_EQ(recording.buckets.size(), Buckets);
        for (std::size_t i = 0; i < Buckets; ++i) {
            const std::vector<RecordedEvent>& stored = recording.buckets[i];
            ASSERT_LE(stored.size(), events[i].size()) << "bucket " << i;
            EXPECT_TRUE(std::equal(stored.begin(), stored.end(), events[i].begin()));
            EXPECT_GE(stored.size(), inFullBlocks(safeEvents[i], EventsABlock)) << "bucket " << i;
        }
        for (std::size_t i = 0; i < recording.strings.size(); ++i)
            EXPECT_EQ(recording.strings[i], string(static_cast<long long>(i)));
        const long long safeStrings = (safe + EventsAString - 1) / EventsAString;
        EXPECT_GE(recording.strings.size(), inFullBlocks(safeStrings, StringsABlock));
        EXPECT_GE(recording.latestTime, safe - 1);
        EXPECT_LE(recording.latestTime, recorded);
    }

private:
    static constexpr std::size_t Buckets = 3;
    static constexpr long long BucketSize = 2048;
    static constexpr std::size_t ValueSize = 64;
    static constexpr long long EventsABlock = 127;  // (10240 - 20 - 4) / (16 + 64), rounded down
    static constexpr long long EventsAString = 10;
    static constexpr long long StringsABlock = 20;  // (1024 - 12 - 1) / 50, rounded down

    // Most lie in the first bucket, which so needs a second node.
    static std::size_t bucketOf(long long number) {
        return number % 10 < 8 ? 0 : static_cast<std::size_t>(number % 10 - 7);
    }
    static RecordedEvent event(long long number) {
        const unsigned long long bits = static_cast<unsigned>(number + 1) * 0x9E3779B97F4A7C15ull;
        std::string value;
        while (value.size() < ValueSize)
            value += fieldOf(bits * (value.size() + 1));
        const auto offset = static_cast<long long>((bits >> 20) % (BucketSize - ValueSize));
        return {number, static_cast<long long>(bucketOf(number)) * BucketSize + offset, value};
    }
    static std::string string(long long index) {
        const std::string digits = std::to_string(index);
        return std::string(49 - digits.size(), 's') + digits;
    }

    static std::size_t inFullBlocks(long long count, long long aBlock) {
        return static_cast<std::size_t>((count - 1) / aBlock * aBlock);
    }

    Progress& m_progress;
    WdbStandAloneWriter m_writer;
};

}  // namespace Korvel
