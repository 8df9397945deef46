#pragma once

#include "plot/WavePicture.h"

#include <string>

namespace Korvel {

/// Pixels from a row's top to the middle of its waves, and to the next row's top.
constexpr double RowMiddle = 12;
constexpr double RowHeight = 24;

/// Pixels that a segment needs, at least, to be told from its neighbours: what is nearer together
/// is better drawn as dense.
constexpr unsigned int finestDetail(RowKind kind) {
    return kind == RowKind::Bus ? 4 : 2;
}

/// What a row shows, as SVG elements. The row's top is at 0, and so is the begin of its waves.
/// @param width  Of the waves; nothing is drawn further than a few pixels beyond.
std::string rowShapes(const WaveRow& row, double width);

}  // namespace Korvel
