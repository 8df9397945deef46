#include "vcd/VcdSource.h"

#include "Interrupt.h"
#include "ToolError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace Korvel {

namespace {

constexpr std::size_t CopyBytes = 1 << 20;

int openUnnamedTemporary(const std::string& inputName) {
    std::string name = (std::filesystem::temp_directory_path() / "wdb-import-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) throw ToolError::fromErrno(inputName, "cannot make a temporary copy");
    unlink(name.c_str());
    return descriptor;
}

bool writeAll(int descriptor, const char* bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t written = write(descriptor, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace

std::size_t VcdMemorySource::read(std::uint64_t offset, char* to, std::size_t size) {
    if (offset >= m_bytes.size()) return 0;
    const std::size_t count = std::min<std::size_t>(size, m_bytes.size() - offset);
    std::memcpy(to, m_bytes.data() + offset, count);
    return count;
}

VcdFileSource::VcdFileSource(const std::string& path)
    : m_name(path == "-" ? "standard input" : path) {
    m_descriptor = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                               : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_descriptor < 0) throw ToolError::fromErrno(m_name, "cannot open");
    struct stat status {};
    const bool isKnown = fstat(m_descriptor, &status) == 0;
    try {
        if (!isKnown) throw ToolError::fromErrno(m_name, "cannot open");
        if (S_ISDIR(status.st_mode)) throw ToolError(m_name, "is a directory");
        const bool isRewindable = S_ISREG(status.st_mode) && lseek(m_descriptor, 0, SEEK_CUR) == 0;
        if (isRewindable) m_size = static_cast<std::uint64_t>(status.st_size);
        if (!isRewindable) spool();
    } catch (...) {
        close(m_descriptor);
        throw;
    }
}

VcdFileSource::~VcdFileSource() {
    close(m_descriptor);
}

// An interrupt ends the copy and not the import: whoever stops "simulation | wdb import -" wants
// what the simulation has written up to then.
void VcdFileSource::spool() {
    const int copy = openUnnamedTemporary(m_name);
    std::vector<char> buffer(CopyBytes);
    while (!Interrupt::isRequested()) {
        const ssize_t count = ::read(m_descriptor, buffer.data(), buffer.size());
        if (count == 0) break;
        if (count < 0 && errno == EINTR) continue;
        const bool isRead = count > 0;
        if (!isRead || !writeAll(copy, buffer.data(), static_cast<std::size_t>(count))) {
            const ToolError error =
                ToolError::fromErrno(m_name, isRead ? "cannot make a temporary copy" : "read");
            close(copy);
            throw error;
        }
        m_size += static_cast<std::uint64_t>(count);
    }
    close(m_descriptor);
    m_descriptor = copy;
}

std::size_t VcdFileSource::read(std::uint64_t offset, char* to, std::size_t size) {
    std::size_t done = 0;
    size = offset >= m_size ? 0 : std::min<std::uint64_t>(size, m_size - offset);
    while (done < size) {
        const ssize_t count =
            pread(m_descriptor, to + done, size - done, static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw ToolError::fromErrno(m_name, "cannot read");
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

bool VcdFileSource::isSameFile(const std::string& path) const {
    struct stat mine {};
    struct stat other {};
    return fstat(m_descriptor, &mine) == 0 && stat(path.c_str(), &other) == 0 &&
           mine.st_dev == other.st_dev && mine.st_ino == other.st_ino;
}

std::uint64_t lineOfOffset(VcdSource& source, std::uint64_t offset) {
    std::vector<char> buffer(CopyBytes);
    std::uint64_t line = 1;
    for (std::uint64_t at = 0; at < offset;) {
        const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), offset - at);
        const std::size_t count = source.read(at, buffer.data(), wanted);
        if (count == 0) break;
        line += static_cast<std::uint64_t>(
            std::count(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count), '\n'));
        at += count;
    }
    return line;
}

}  // namespace Korvel
