#pragma once

#include "korvel/IWdbWriter.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Korvel {

/// Turns texts of a dump into what a recording holds of them: the id of the first piece in the low
/// half, the number of further pieces in the high half, 0 for the empty text.
///
/// Texts met before are remembered, up to a bound, so that a state name that comes a million times
/// is stored once.
class TextStore {
public:
    /// Longest piece that a recording's string map takes.
    static constexpr std::size_t MaxPieceBytes = 1010;

    /// @param writer  An open recording, which must outlive the store.
    explicit TextStore(IWdbWriter& writer) : m_writer(writer) {}

    /// @param text  As it stands in the dump, backslash sequences included.
    /// Returns false when the recording does not take it.
    bool store(std::string_view text, std::uint64_t& value);

    /// Texts that hold a zero byte, which other tools take for their end.
    std::uint64_t textsWithZero() const { return m_textsWithZero; }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text);
        }
    };

    bool add(const std::string& text, std::uint64_t& value);

    IWdbWriter& m_writer;
    std::unordered_map<std::string, std::uint64_t, Hash, std::equal_to<>> m_known;
    std::size_t m_knownBytes = 0;
    std::uint64_t m_textsWithZero = 0;
};

}  // namespace Korvel
