#include "inspect/RecordingBytes.h"

#include "ToolError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Korvel {

bool RecordingBytes::holds(std::int64_t offset, std::uint64_t size) const {
    const std::uint64_t end = this->size();
    const auto begin = static_cast<std::uint64_t>(offset);
    return offset >= 0 && begin <= end && size <= end - begin;
}

bool RecordingMemoryBytes::read(std::int64_t offset, void* to, std::size_t size) const {
    if (!holds(offset, size)) return false;
    if (size != 0) std::memcpy(to, m_bytes.data() + offset, size);
    return true;
}

RecordingFileBytes::RecordingFileBytes(const std::string& path)
    : m_path(path), m_descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (m_descriptor < 0) throw ToolError::fromErrno(path, "cannot open the recording");
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(m_descriptor);
        throw ToolError(path, S_ISDIR(status.st_mode) ? "is a directory, not a recording"
                                                      : "is no ordinary file");
    }
}

RecordingFileBytes::~RecordingFileBytes() {
    ::close(m_descriptor);
}

std::uint64_t RecordingFileBytes::size() const {
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0) {
        throw ToolError::fromErrno(m_path, "cannot look at the recording");
    }
    return static_cast<std::uint64_t>(status.st_size);
}

bool RecordingFileBytes::read(std::int64_t offset, void* to, std::size_t size) const {
    if (offset < 0) return false;
    auto* target = static_cast<char*>(to);
    while (size > 0) {
        const ssize_t count = ::pread(m_descriptor, target, size, offset);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw ToolError::fromErrno(m_path, "cannot read the recording");
        if (count == 0) return false;
        target += count;
        offset += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace Korvel
