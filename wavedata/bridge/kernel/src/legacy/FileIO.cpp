#include "legacy/FileIO.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <sys/stat.h>
#include <sys/types.h>

namespace Korvel {
namespace {

using StringLength = std::uint32_t;
using ShortStringLength = std::uint16_t;

// A length that stands for no string.
constexpr StringLength NoString = 0xFFFFFFFF;

constexpr unsigned int ChunkSize = 4096;

static_assert(sizeof(off_t) == 8, "stores grow beyond what 32 bits can address");

const char* streamMode(FileIO::SerialModes mode) {
    switch (mode) {
        case FileIO::SerialRead:
            return "rb";
        case FileIO::SerialWrite:
            return "wb";
        case FileIO::SerialReadWrite:
            return "w+b";
        case FileIO::SerialNone:
            break;
    }
    return "";  // which opens nothing
}

}  // namespace

FileIO::~FileIO() {
    close();
}

bool FileIO::open(const std::string& path, SerialModes mode) {
    if (mode == SerialNone || path.empty()) return false;
    close();
    m_mode = mode;
    m_path = path;
    return openStream();
}

bool FileIO::reopen() {
    if (m_mode != SerialWrite) return false;
    close();
    return openStream();
}

bool FileIO::openStream() {
    m_pStream = std::fopen(m_path.c_str(), streamMode(m_mode));
    return m_pStream != nullptr;
}

bool FileIO::flush() {
    const bool isWriting = m_mode == SerialWrite || m_mode == SerialReadWrite;
    if (!isWriting || m_pStream == nullptr) return true;
    return std::fflush(m_pStream) == 0;
}

bool FileIO::close() {
    if (m_pStream == nullptr) return true;
    const bool isFlushed = m_mode != SerialWrite || flush();
    const bool isClosed = std::fclose(m_pStream) == 0;
    m_pStream = nullptr;
    return isFlushed && isClosed;
}

bool FileIO::isEOF() const {
    return m_pStream != nullptr && std::feof(m_pStream) != 0;
}

unsigned long long FileIO::getFileSize() const {
    constexpr auto Unknown = static_cast<unsigned long long>(InvalidOffset);
    if (m_mode != SerialRead || m_pStream == nullptr) return Unknown;
    struct stat status = {};
    if (::fstat(::fileno(m_pStream), &status) != 0) return Unknown;
    return static_cast<unsigned long long>(status.st_size);
}

bool FileIO::setOffset(long offset) {
    if (m_pStream == nullptr || offset < 0) return false;
    return ::fseeko(m_pStream, offset, SEEK_SET) == 0;
}

bool FileIO::readData(void* buf, unsigned int n) {
    return m_pStream != nullptr && std::fread(buf, 1, n, m_pStream) == n;
}

bool FileIO::writeData(const void* buf, unsigned int n) {
    return m_pStream != nullptr && std::fwrite(buf, 1, n, m_pStream) == n;
}

bool FileIO::readEndianData(void* buf, unsigned int n) {
    if (buf == nullptr || !readData(buf, n)) return false;
    if (m_isSwapping) {
        auto* bytes = static_cast<unsigned char*>(buf);
        std::reverse(bytes, bytes + n);
    }
    return true;
}

bool FileIO::writeString(const std::string& text) {
    // Its length would be read back as another one.
    if (text.size() >= NoString) return false;
    const auto length = static_cast<StringLength>(text.size());
    return writeData(&length, sizeof(length)) && writeData(text.data(), length);
}

bool FileIO::writeShortString(const std::string& text) {
    const auto length = static_cast<ShortStringLength>(text.size());
    return writeData(&length, sizeof(length)) && writeData(text.data(), length);
}

bool FileIO::readString(std::string& text) {
    StringLength length;
    if (!readEndianData(&length, sizeof(length))) return false;
    text.clear();
    return length != NoString && readText(text, length);
}

bool FileIO::readShortString(std::string& text) {
    ShortStringLength length;
    if (!readEndianData(&length, sizeof(length))) return false;
    text.clear();
    return readText(text, length);
}

// The length is only what the file claims: memory grows with what is really there.
bool FileIO::readText(std::string& text, unsigned int length) {
    bool isInText = true;
    while (length > 0) {
        char chunk[ChunkSize];
        const unsigned int wanted = std::min(length, ChunkSize);
        const std::size_t got = std::fread(chunk, 1, wanted, m_pStream);
        const std::size_t textLength = ::strnlen(chunk, got);
        if (isInText) text.append(chunk, textLength);
        isInText = isInText && textLength == got;
        if (got != wanted) return false;
        length -= wanted;
    }
    return true;
}

unsigned long long FileIO::diskStringSize(const std::string& text) {
    return text.size() + sizeof(StringLength);
}

unsigned long long FileIO::diskShortStringSize(const std::string& text) {
    return text.size() + sizeof(ShortStringLength);
}

}  // namespace Korvel
