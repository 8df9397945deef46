#pragma once

#include "ask/QueryOptions.h"
#include "plot/WavePicture.h"

#include <string>
#include <vector>

namespace Korvel {

constexpr unsigned int DefaultPictureWidth = 1000;

/// Throws ToolError naming @p file where the objects are more, or have more bits, than a picture
/// can show.
void checkDrawable(const std::string& file, const std::vector<ViewedObject>& objects);

/// A picture of a recording from one time to another, still without rows. It is made so long that
/// its begin and end are different pixels. The caption says what it shows.
WavePicture pictureOf(const ViewedRecording& recording, TimeRange range);

/// Adds a row for each object. False where an Interrupt that the caller keeps was requested.
/// @param trees  Of the scalars of all objects.
bool drawRows(WavePicture& picture, const ViewedRecording& recording,
              const std::vector<ViewedObject>& objects, const std::vector<WdbScalarBTree*>& trees,
              const ValueFormat& format);

/// "6.4 us to 8.3 us"
std::string timeSpan(const WavePicture& picture);

}  // namespace Korvel
