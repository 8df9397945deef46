#include "plot/RecordingPicture.h"

#include "Interrupt.h"
#include "ToolError.h"
#include "plot/RowBuilder.h"
#include "plot/RowShapes.h"
#include "plot/SvgPicture.h"
#include "plot/TimeAxis.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <limits>

namespace Korvel {

namespace {

// A picture of more rows, or of an object with more bits, shows nothing; its memory would grow
// with their number times the width.
constexpr std::size_t MostRows = 500;
constexpr std::size_t MostScalarsOfRow = 1 << 16;

// One scalar is asked for after the other: see RowRaster.
RowRaster rasterOf(const ViewedRecording& recording, const WavePicture& picture,
                   std::size_t columns, std::size_t scalars, WdbScalarBTree* const* trees) {
    const long long end = std::clamp(recording.latestTime(), picture.from, picture.to);
    RowRaster raster(picture.from, picture.to, end, columns, scalars);
    std::vector<WdbTimeByteValues> snapshots;
    for (std::size_t i = 0; i < scalars; ++i) {
        snapshots.clear();
        recording.reader().getValueEvents(picture.from, end, raster.resolution(), {trees[i]},
                                          snapshots);
        raster.addScalar(i, snapshots);
    }
    return raster;
}

}  // namespace

void checkDrawable(const std::string& file, const std::vector<ViewedObject>& objects) {
    if (objects.size() > MostRows) {
        throw ToolError(file, fmt::format("{} objects are more than a picture can show ({}); name "
                                          "those to be drawn",
                                          objects.size(), MostRows));
    }
    for (const ViewedObject& viewed : objects) {
        if (viewed.scalarCount() <= MostScalarsOfRow) continue;
        throw ToolError(file, fmt::format("{} has more bits than a row can show ({}); take a slice",
                                          viewed.name, MostScalarsOfRow));
    }
}

WavePicture pictureOf(const ViewedRecording& recording, TimeRange range) {
    WavePicture picture;
    picture.from = std::min(range.from, std::numeric_limits<long long>::max() - 1);
    picture.to = std::max(range.to, picture.from + 1);
    picture.timeUnit = recording.timeUnit();
    picture.width = DefaultPictureWidth;
    picture.caption = fmt::format(
        "{}, {}", std::filesystem::path(recording.file()).filename().string(), timeSpan(picture));
    return picture;
}

bool drawRows(WavePicture& picture, const ViewedRecording& recording,
              const std::vector<ViewedObject>& objects, const std::vector<WdbScalarBTree*>& trees,
              const ValueFormat& format) {
    for (const ViewedObject& viewed : objects)
        picture.rows.push_back(rowOf(viewed, recording.description()));
    joinLoneRows(picture.rows);
    if (picture.from > recording.latestTime()) return true;
    const unsigned int width = waveWidth(picture);
    const RowBuilder builder(format, picture.from, picture.to, width);
    WdbScalarBTree* const* next = trees.data();
    for (std::size_t i = 0; i < objects.size(); ++i) {
        const std::size_t count = objects[i].scalarCount();
        const unsigned int columns = width / finestDetail(picture.rows[i].kind);
        builder.fill(picture.rows[i], objects[i],
                     rasterOf(recording, picture, columns, count, next));
        next += count;
        if (Interrupt::isRequested()) return false;
    }
    return true;
}

std::string timeSpan(const WavePicture& picture) {
    return fmt::format("{} to {}", readableTime(picture.from, picture.timeUnit),
                       readableTime(picture.to, picture.timeUnit));
}

}  // namespace Korvel
