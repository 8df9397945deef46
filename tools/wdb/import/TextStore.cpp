#include "import/TextStore.h"

#include "vcd/VcdText.h"

#include <limits>

namespace Korvel {

namespace {

constexpr std::size_t MaxKnownBytes = 16 * 1024 * 1024;
constexpr std::size_t BytesPerEntry = 100;  // what the map itself takes, about

}  // namespace

bool TextStore::store(std::string_view text, std::uint64_t& value) {
    const auto known = m_known.find(text);
    if (known != m_known.end()) {
        value = known->second;
        return true;
    }
    if (!add(unescapeVcdText(text), value)) return false;
    if (m_knownBytes > MaxKnownBytes) {
        m_known.clear();
        m_knownBytes = 0;
    }
    m_knownBytes += text.size() + BytesPerEntry;
    m_known.emplace(text, value);
    return true;
}

bool TextStore::add(const std::string& text, std::uint64_t& value) {
    value = 0;
    if (text.find('\0') != std::string::npos) ++m_textsWithZero;
    for (std::size_t at = 0; at < text.size(); at += MaxPieceBytes) {
        const long long id = m_writer.addString(text.substr(at, MaxPieceBytes));
        if (id < 0 || id > std::numeric_limits<std::uint32_t>::max()) return false;
        if (at == 0) {
            value = static_cast<std::uint64_t>(id);
        } else {
            value += std::uint64_t{1} << 32;
        }
    }
    return true;
}

}  // namespace Korvel
