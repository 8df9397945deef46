#pragma once

#include "plot/WavePicture.h"

#include <string>

namespace Korvel {

/// Pixels that are left for the waves beside the names; segments reach from 0 to there.
unsigned int waveWidth(const WavePicture& picture);

/// The picture as an SVG document: well-formed whatever bytes names and values consist of, and the
/// same for the same picture.
std::string svgDocument(const WavePicture& picture);

}  // namespace Korvel
