#include "indexes/WdbIndexPages.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <boost/thread/lock_guard.hpp>

#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbIndexPages";

[[noreturn]] void throwFull(const std::string& path, int error) {
    throwOpenException(ClassFile, __LINE__,
                       "Cannot write temporary waveform data file " + path +
                           " for the following reason: " + std::strerror(error));
}

}  // namespace

WdbIndexPages::WdbIndexPages(std::size_t pageSize)
    : m_pageSize(pageSize), m_segments(std::make_unique<std::atomic<char*>[]>(SegmentLimit)) {}

WdbIndexPages::WdbIndexPages(const std::string& path, std::size_t pageSize)
    : WdbIndexPages(pageSize) {
    // Others have no business with what this viewer shows.
    m_file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (m_file < 0) throw std::system_error(errno, std::generic_category());
    m_path = path;
}

WdbIndexPages::~WdbIndexPages() {
    for (std::size_t i = 0; i < SegmentLimit; ++i) {
        if (m_segments[i] != nullptr) ::munmap(m_segments[i], segmentSize(i));
    }
    if (m_file < 0) return;
    ::unlink(m_path.c_str());
    ::close(m_file);
}

WdbIndexPages::Handle WdbIndexPages::add(const char* page) {
    const Handle handle = m_count.fetch_add(1, std::memory_order_relaxed);
    const Place place = placeOf(handle);
    if (place.segment >= SegmentLimit) throw std::bad_alloc();
    char* segment = m_segments[place.segment].load(std::memory_order_acquire);
    if (segment == nullptr) segment = makeSegment(place.segment);
    std::memcpy(segment + place.index * m_pageSize, page, m_pageSize);
    return handle;
}

unsigned long long WdbIndexPages::getSize() const {
    return 1ull * m_count.load(std::memory_order_relaxed) * m_pageSize;
}

WdbIndexPages::Place WdbIndexPages::placeOf(Handle handle) {
    constexpr std::size_t Doubled = LargestSegment - (std::size_t{1} << FirstSegmentBits);
    if (handle >= Doubled) {
        const std::size_t beyond = handle - Doubled;
        return {Doublings + beyond / LargestSegment, beyond % LargestSegment};
    }
    const auto segment =
        static_cast<std::size_t>(std::bit_width((handle >> FirstSegmentBits) + 1)) - 1;
    return {segment, handle - (((std::size_t{1} << segment) - 1) << FirstSegmentBits)};
}

std::size_t WdbIndexPages::pagesIn(std::size_t segment) {
    return segment >= Doublings ? LargestSegment : std::size_t{1} << (FirstSegmentBits + segment);
}

// In bytes. Mappings of a file begin at multiples of the system's own page size.
std::size_t WdbIndexPages::segmentSize(std::size_t segment) const {
    static const auto systemPage = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return (pagesIn(segment) * m_pageSize + systemPage - 1) / systemPage * systemPage;
}

// Segments lie in the file in the order in which they were made, which need not be theirs.
char* WdbIndexPages::makeSegment(std::size_t segment) {
    const boost::lock_guard<boost::mutex> lock(m_mutex);
    if (char* made = m_segments[segment].load(std::memory_order_acquire)) return made;
    const std::size_t size = segmentSize(segment);
    if (m_file >= 0) {
        int error = 0;
        do {
            error =
                ::posix_fallocate(m_file, static_cast<off_t>(m_fileSize), static_cast<off_t>(size));
        } while (error == EINTR);
        if (error != 0) throwFull(m_path, error);
    }
    void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          m_file >= 0 ? MAP_SHARED : MAP_PRIVATE | MAP_ANONYMOUS, m_file,
                          m_file >= 0 ? static_cast<off_t>(m_fileSize) : 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    if (m_file >= 0) m_fileSize += size;
    m_segments[segment].store(static_cast<char*>(memory), std::memory_order_release);
    return static_cast<char*>(memory);
}

}  // namespace Korvel
