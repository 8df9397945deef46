#pragma once

#include <string>

namespace Korvel {

/// First 64 bytes of a recording.
///
///   offset  size  field
///        0    24  version        "Pellon WAVE DATABASE 01" and a zero byte
///       24    24  application    who wrote the file, zero-filled, no terminator when 24 long
///       48     8  contents head  signed, offset of the first table-of-contents node; 0: none
///       56     4  creation time  unsigned, low 32 bits of the seconds since 1970-01-01 UTC;
///                                all ones in a header that was never created
///       60     4  reserved       zero
struct WdbFileHeader {
    static constexpr unsigned int TextSize = 24;
    static constexpr long long ContentsHeadOffset = 48;

    WdbFileHeader();

    void setVersion(const std::string& version);
    void setApplication(const std::string& application);

    /// The application's name up to its first zero byte.
    std::string getApplication() const;

    /// Whether the whole version field is the one that this library writes.
    bool isVersionStringMatched() const;

    char m_version[TextSize];
    char m_application[TextSize];
    long long m_contentsHead;
    unsigned int m_creationTime;
    unsigned int m_reserved;
};
static_assert(sizeof(WdbFileHeader) == 64);

/// Zero-fills a text field of 24 bytes and copies at most 24 characters into it.
void fillTextField(char* field, const std::string& text);

/// The text of a field up to its first zero byte, at most 24 characters.
std::string textOfField(const char* field);

}  // namespace Korvel
