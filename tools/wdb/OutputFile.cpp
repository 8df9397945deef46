#include "OutputFile.h"

#include "ToolError.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Korvel {

namespace {

constexpr std::size_t BufferBytes = 1 << 20;

}  // namespace

OutputFile::OutputFile(const std::string& name)
    : m_name(name == "-" ? "standard output" : name),
      m_file(name == "-" ? stdout : std::fopen(name.c_str(), "wb")),
      m_buffer(BufferBytes) {
    if (m_file == nullptr) throw ToolError::fromErrno(m_name, "cannot create");
    if (!isStandardOutput()) std::setvbuf(m_file, m_buffer.data(), _IOFBF, m_buffer.size());
}

OutputFile::~OutputFile() {
    if (m_file != nullptr && !isStandardOutput()) std::fclose(m_file);
}

void OutputFile::put(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) fail();
}

void OutputFile::close() {
    if (std::fflush(m_file) != 0 || std::ferror(m_file) != 0) fail();
    const bool isOwned = !isStandardOutput();
    std::FILE* file = std::exchange(m_file, nullptr);
    if (isOwned && std::fclose(file) != 0) fail();
}

void OutputFile::fail() const {
    const int reason = errno;
    // Half a file would look like a whole one. A device is not ours to remove.
    std::error_code ignored;
    if (!isStandardOutput() && std::filesystem::is_regular_file(m_name, ignored))
        std::filesystem::remove(m_name, ignored);
    errno = reason;
    if (reason == EPIPE) throw ToolExit{ExitBrokenPipe};
    throw ToolError::fromErrno(m_name, "cannot write");
}

void checkCreatable(const std::string& name) {
    const std::filesystem::path path(name);
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(path, ignored);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw ToolError(name, "is no file that could be replaced");
    const bool isThere = std::filesystem::exists(status);
    if (::access(isThere ? path.c_str() : folder.c_str(), W_OK) != 0)
        throw ToolError::fromErrno(name, "cannot create");
}

bool isSameFile(const std::string& one, const std::string& two) {
    std::error_code ignored;
    return std::filesystem::weakly_canonical(std::filesystem::absolute(one), ignored) ==
           std::filesystem::weakly_canonical(std::filesystem::absolute(two), ignored);
}

}  // namespace Korvel
