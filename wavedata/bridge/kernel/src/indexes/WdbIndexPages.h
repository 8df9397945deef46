#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <boost/thread/mutex.hpp>

namespace Korvel {

/// The full pages of drawing indexes: pages of one size, only ever added, each found by its handle.
/// They lie in memory, or in a temporary file that is mapped, so that reading a page costs no
/// system call and no copy and the system decides which pages stay in memory.
///
/// The file grows by segments whose blocks are reserved before they are mapped: a full disk is an
/// error when a segment is added, never a bus error when a page is written.
///
/// Any threads may add and read at the same time; no lock is held while a page is copied.
class WdbIndexPages {
public:
    using Handle = std::uint32_t;

    static constexpr std::size_t DefaultPageSize = 512;

    /// In memory.
    /// @param pageSize  A multiple of 8, at least 56: a node has two children at least.
    explicit WdbIndexPages(std::size_t pageSize = DefaultPageSize);

    /// In a file that is made here and unlinked by the destructor.
    /// Throws std::system_error; with EEXIST where the name is taken.
    explicit WdbIndexPages(const std::string& path, std::size_t pageSize = DefaultPageSize);

    ~WdbIndexPages();
    WdbIndexPages(const WdbIndexPages&) = delete;
    WdbIndexPages& operator=(const WdbIndexPages&) = delete;

    std::size_t getPageSize() const { return m_pageSize; }

    /// Stores a copy of a page. Throws Veld::OpenException when the disk has no room for it.
    Handle add(const char* page);

    /// The bytes of a page; they stay where they are as long as the store lives.
    const char* page(Handle handle) const {
        const Place place = placeOf(handle);
        return m_segments[place.segment].load(std::memory_order_acquire) + place.index * m_pageSize;
    }

    /// Bytes of the pages added so far, also of those that no room was found for.
    unsigned long long getSize() const;

private:
    // Segments double from the first to the largest, then stay as large: a small recording takes
    // little, a large one needs few mappings.
    static constexpr unsigned int FirstSegmentBits = 7;  // 128 pages
    static constexpr unsigned int Doublings = 10;
    static constexpr std::size_t LargestSegment = std::size_t{1} << (FirstSegmentBits + Doublings);
    static constexpr std::size_t SegmentLimit = 16384;

    struct Place {
        std::size_t segment;
        std::size_t index;  // of the page in it
    };

    static Place placeOf(Handle handle);
    static std::size_t pagesIn(std::size_t segment);
    std::size_t segmentSize(std::size_t segment) const;
    char* makeSegment(std::size_t segment);

    std::size_t m_pageSize;
    std::string m_path;  // empty: in memory
    int m_file = -1;
    std::unique_ptr<std::atomic<char*>[]> m_segments;  // null where none was made
    std::atomic<std::uint32_t> m_count{0};             // pages given out
    boost::mutex m_mutex;                              // while a segment is made
    std::size_t m_fileSize = 0;                        // bytes reserved; under m_mutex
};

}  // namespace Korvel
