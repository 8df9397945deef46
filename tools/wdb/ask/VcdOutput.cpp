#include "ask/VcdOutput.h"

#include "ToolError.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Korvel {

namespace {

constexpr std::size_t BufferBytes = 1 << 20;

bool isBlankByte(char c) {
    return static_cast<unsigned char>(c) <= ' ';
}

}  // namespace

VcdOutput::VcdOutput(const std::string& name)
    : m_name(name == "-" ? "standard output" : name),
      m_file(name == "-" ? stdout : std::fopen(name.c_str(), "wb")),
      m_buffer(BufferBytes) {
    if (m_file == nullptr) throw ToolError::fromErrno(m_name, "cannot create");
    if (!isStandardOutput()) std::setvbuf(m_file, m_buffer.data(), _IOFBF, m_buffer.size());
}

VcdOutput::~VcdOutput() {
    if (m_file != nullptr && !isStandardOutput()) std::fclose(m_file);
}

void VcdOutput::put(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) fail();
}

void VcdOutput::close() {
    if (std::fflush(m_file) != 0 || std::ferror(m_file) != 0) fail();
    const bool isOwned = !isStandardOutput();
    std::FILE* file = std::exchange(m_file, nullptr);
    if (isOwned && std::fclose(file) != 0) fail();
}

void VcdOutput::fail() const {
    const int reason = errno;
    // Half a file would look like a whole one. A device is not ours to remove.
    std::error_code ignored;
    if (!isStandardOutput() && std::filesystem::is_regular_file(m_name, ignored))
        std::filesystem::remove(m_name, ignored);
    errno = reason;
    if (reason == EPIPE) throw ToolExit{ExitBrokenPipe};
    throw ToolError::fromErrno(m_name, "cannot write");
}

std::string vcdCode(std::uint32_t n) {
    constexpr char First = '%';  // not "!" to "$": some readers take "#" and "$" for something else
    constexpr std::uint32_t Letters = '~' - First + 1;
    std::string code;
    do {
        code += static_cast<char>(First + n % Letters);
        n /= Letters;
    } while (n-- != 0);
    return code;
}

std::string escapeVcdText(std::string_view text) {
    std::string word;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            word += "\\\\";
        } else if (isBlankByte(c) || byte == 0x7F) {
            word += fmt::format("\\{:03o}", byte);
        } else {
            word += c;
        }
    }
    return word;
}

std::string plainVcdText(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && !isBlankByte(text[end]))
            ++end;
        const std::string_view word = text.substr(at, end - at);
        if (!word.empty()) {
            if (!plain.empty()) plain += ' ';
            plain += word == "$end" ? std::string_view("$_end") : word;
        }
        at = end + 1;
    }
    return plain;
}

}  // namespace Korvel
