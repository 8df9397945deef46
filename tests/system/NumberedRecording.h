#pragma once

#include <atomic>
#include <string>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "tests/system/LibraryAccess.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {

// Memory that stays when the process that writes it is killed.
template <typename T>
class SharedWithChildren {
public:
    SharedWithChildren()
        : m_memory(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                          -1, 0)) {
        if (m_memory == MAP_FAILED) throw std::bad_alloc();
        new (m_memory) T();
    }
    ~SharedWithChildren() { ::munmap(m_memory, sizeof(T)); }
    SharedWithChildren(const SharedWithChildren&) = delete;
    SharedWithChildren& operator=(const SharedWithChildren&) = delete;

    T* operator->() const { return static_cast<T*>(m_memory); }

private:
    void* m_memory;
};

// A recording in which every event and every string follows from its number, so that a reader knows
// what must be there however it ended. Most events lie in the first of three buckets.
class NumberedRecording {
public:
    static constexpr std::size_t Buckets = 3;
    static constexpr long long BucketSize = 2048;
    static constexpr long long EventsAString = 40;

    // What the recording process tells, also after its end.
    struct Progress {
        std::atomic<long long> recorded = 0;                // events
        std::atomic<std::size_t> safeEvents[Buckets] = {};  // in blocks that a checkpoint named
        std::atomic<std::size_t> safeStrings = 0;
        std::atomic<long long> safeTime = 0;
        std::atomic<long long> wanted = 0;  // events that the process may record by now
    };

    NumberedRecording(const std::string& path, Progress& progress) : m_progress(progress) {
        m_writer.setAddressSize(Buckets * BucketSize);
        m_writer.open(IWdbWriter::DefaultMode, "none/sim", path, 0);
    }

    static std::size_t bucketOf(long long number) {
        const unsigned int die = randomOf(number) % 10;
        return die < 8 ? 0 : die - 7;
    }

    static StoredEvent event(long long number) {
        const unsigned int random = randomOf(number);
        std::string value(1 + (random >> 8) % 60, '\0');
        for (std::size_t i = 0; i < value.size(); ++i)
            value[i] = static_cast<char>(random >> i % 24);
        const long long offset = (random >> 12) % (BucketSize - 60);
        return {number, static_cast<long long>(bucketOf(number)) * BucketSize + offset, value};
    }

    static std::string string(std::size_t id) {
        return std::string(id * 37 % 90, 'a') + std::to_string(id);
    }

    // The first events of a bucket.
    static std::vector<StoredEvent> firstEvents(std::size_t bucket, std::size_t count) {
        std::vector<StoredEvent> events;
        for (long long number = 0; events.size() < count; ++number)
            if (bucketOf(number) == bucket) events.push_back(event(number));
        return events;
    }

    void recordNext() {
        const long long number = m_progress.recorded;
        const StoredEvent next = event(number);
        traceBytes(m_writer, next.time, next.address, next.value);
        m_events[bucketOf(number)].add(16 + next.value.size(), 20, 20 + next.value.size(), 10240);
        if (number % EventsAString == 0) {
            const std::string text = string(++m_lastString);
            m_writer.addString(text);
            m_strings.add(text.size() + 1, 12, text.size() + 1, 1024);
        }
        m_writer.markCurrentTime(number);
        m_progress.recorded = number + 1;
    }

    // From here on a killed recording must hold what is stored now.
    void checkpoint() {
        m_writer.checkpoint();
        for (std::size_t bucket = 0; bucket < Buckets; ++bucket)
            m_progress.safeEvents[bucket] = m_events[bucket].stored;
        m_progress.safeStrings = m_strings.stored;
        m_progress.safeTime = m_progress.recorded - 1;
    }

    void mark(long long time) { m_writer.markCurrentTime(time); }
    void close() { m_writer.close(); }

    // Whether a file holds what a recording with this progress must have left.
    static void expectSound(const StoredRecording& recording, const Progress& progress) {
        ASSERT_EQ(recording.sectionIDs(), "WDB.Event WDB.StringMap ");
        ASSERT_EQ(recording.buckets.size(), Buckets);
        for (std::size_t bucket = 0; bucket < Buckets; ++bucket) {
            const std::vector<StoredEvent>& events = recording.buckets[bucket];
            EXPECT_GE(events.size(), progress.safeEvents[bucket]) << "bucket " << bucket;
            EXPECT_TRUE(events == firstEvents(bucket, events.size())) << "bucket " << bucket;
        }
        EXPECT_GE(recording.strings.size(), progress.safeStrings);
        for (std::size_t id = 1; id <= recording.strings.size(); ++id)
            EXPECT_EQ(recording.strings[id - 1], string(id));
        EXPECT_GE(recording.latestTime, progress.safeTime);
        EXPECT_LE(recording.latestTime, progress.recorded);
    }

private:
    // How full the current block is, and what the full ones before it hold.
    struct BlockCount {
        std::size_t used = 0;
        std::size_t inBlock = 0;
        std::size_t stored = 0;

        void add(std::size_t size, std::size_t header, std::size_t needed, std::size_t capacity) {
            if (used == 0) used = header;
            if (used + needed >= capacity) {
                stored += inBlock;
                inBlock = 0;
                used = header;
            }
            used += size;
            ++inBlock;
        }
    };

    static unsigned int randomOf(long long number) {
        auto bits = static_cast<unsigned long long>(number + 1) * 0x9E3779B97F4A7C15ull;
        bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9ull;
        return static_cast<unsigned int>(bits >> 32);
    }

    Progress& m_progress;
    WdbStandAloneWriter m_writer;
    BlockCount m_events[Buckets];
    BlockCount m_strings;
    std::size_t m_lastString = 0;
};

}  // namespace Korvel
