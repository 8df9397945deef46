#include "container/WdbFileHeader.h"

#include <algorithm>
#include <cstring>

namespace Korvel {
namespace {

const char Version[] = "Pellon WAVE DATABASE 01";
constexpr unsigned int NeverCreated = 0xFFFFFFFF;

}  // namespace

WdbFileHeader::WdbFileHeader()
    : m_application(), m_contentsHead(0), m_creationTime(NeverCreated), m_reserved(0) {
    setVersion(Version);
}

void WdbFileHeader::setVersion(const std::string& version) {
    fillTextField(m_version, version);
}

void WdbFileHeader::setApplication(const std::string& application) {
    fillTextField(m_application, application);
}

std::string WdbFileHeader::getApplication() const {
    return textOfField(m_application);
}

bool WdbFileHeader::isVersionStringMatched() const {
    char expected[TextSize];
    fillTextField(expected, Version);
    return std::memcmp(m_version, expected, TextSize) == 0;
}

void fillTextField(char* field, const std::string& text) {
    std::memset(field, 0, WdbFileHeader::TextSize);
    std::memcpy(field, text.data(), std::min<std::size_t>(text.size(), WdbFileHeader::TextSize));
}

std::string textOfField(const char* field) {
    return {field, ::strnlen(field, WdbFileHeader::TextSize)};
}

}  // namespace Korvel
