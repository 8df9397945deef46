#pragma once

#include "description/DescriptionVocabulary.h"
#include "vcd/VcdDeclarations.h"

#include <cstdint>
#include <vector>

namespace Korvel {

/// What kinds of values the dump has for a signal, united. Digits are noted with their
/// VcdDigitClass, these with their own bits.
enum SeenValue : std::uint8_t { SeenReal = 32, SeenText = 64 };

/// Where and how the values of one signal are recorded.
struct RecordedSignal {
    std::int64_t address = 0;
    std::uint32_t width = 1;  // bits or elements, at least 1
    ValueRepresentation representation = ValueRepresentation::VerilogFourState;
};
static_assert(sizeof(RecordedSignal) == 16, "one is looked up for every value change");

/// The data space of a recording: every signal has its bytes in it, in the order of declaration,
/// at a multiple of 8 where a value is made of larger units.
struct RecordingLayout {
    std::vector<RecordedSignal> signals;
    std::int64_t size = 0;  // addresses in all

    /// @param seen  By signal, what values the dump has for it. That decides where the declaration
    ///              says something else, so that no value is without a place.
    /// Throws std::length_error where the values of all signals need more than MaxSize.
    RecordingLayout(const std::vector<VcdSignal>& declared, const std::vector<std::uint8_t>& seen);

    /// Largest data space, of which the importer keeps a copy in memory.
    static constexpr std::int64_t MaxSize = std::int64_t{1} << 30;
};

}  // namespace Korvel
