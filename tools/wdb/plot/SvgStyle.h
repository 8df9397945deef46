#pragma once

#include "plot/WavePicture.h"

#include <string>

namespace Korvel {

// Width of a character in the pictures' fonts, in pixels. The fonts are those of the machine that
// shows the picture; common monospaced ones agree on 0.6 of their height, and the rest is
// estimated.
constexpr double NameCharacter = 7.3;
constexpr double ValueCharacter = 6.7;
constexpr double AxisCharacter = 6.2;

/// The style sheet of a picture, which classes name:
///   page title caption heading name tick grid edge   the picture around the waves
///   wave high event bus                              lines of bits, area below a 1, arrows, cells
///   unknown floating none dense run                  other kinds; dense for bits, run for cells
///   value                                            text in a cell, with "bad" in an unknown one
/// Colours are given outright, because few programs but browsers know variables.
std::string styleSheet(Theme theme);

}  // namespace Korvel
