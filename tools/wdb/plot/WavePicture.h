#pragma once

#include "description/DescriptionVocabulary.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Korvel {

// What a waveform picture shows, before it has colours or a file format. Horizontal places are
// pixels from the begin of the waves; they need not be whole.

enum class WaveKind : std::uint8_t {
    None,           ///< nothing is recorded yet
    Low,            ///< of one bit
    High,           ///< of one bit
    Value,          ///< of anything else
    Unknown,        ///< at least one digit is x, or one of its relatives among nine states
    HighImpedance,  ///< all digits are z
    Dense           ///< changes too close to be told apart
};

struct WaveSegment {
    double begin = 0;
    double end = 0;  ///< equal to begin for changes that have no width at this scale
    WaveKind kind = WaveKind::None;
    bool isCut = false;  ///< it began before the picture does
    std::string text;    ///< empty where there is none, or no room for any
};

enum class RowKind : std::uint8_t {
    Bit,   ///< a line at two levels
    Bus,   ///< cells with texts in them
    Event  ///< an arrow where each segment begins
};

struct WaveRow {
    RowKind kind = RowKind::Bus;
    std::string scope;  ///< rows of one scope that follow each other stand under one heading
    std::string name;   ///< within the scope
    /// Where a text does not fit: whether its end tells more than its begin, as with a number.
    bool isEndTelling = true;
    std::vector<WaveSegment> segments;  ///< left to right, without gaps or overlaps
};

/// Colours for a light page, for a dark one, or for what the reader of the picture prefers.
enum class Theme : std::uint8_t { Light, Dark, Auto };

struct WavePicture {
    std::string title;    ///< empty = none
    std::string caption;  ///< below the title; not shown without one
    long long from = 0;   ///< time at pixel 0
    long long to = 1;     ///< time at the right end; after from
    std::optional<TimeUnit> timeUnit;
    unsigned int width = 0;  ///< of the whole picture
    Theme theme = Theme::Auto;
    std::vector<WaveRow> rows;
};

}  // namespace Korvel
