#include "PlotVerb.h"

#include "Interrupt.h"
#include "OutputFile.h"
#include "ToolError.h"
#include "ask/QueryOptions.h"
#include "inspect/Json.h"
#include "plot/RowBuilder.h"
#include "plot/RowShapes.h"
#include "plot/SvgPicture.h"
#include "plot/TimeAxis.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace Korvel {

namespace {

// A picture of more rows, or of an object with more bits, shows nothing; its memory would grow
// with their number times the width.
constexpr std::size_t MostRows = 500;
constexpr std::size_t MostScalarsOfRow = 1 << 16;

constexpr unsigned int DefaultWidth = 1000;
constexpr unsigned int LeastWidth = 200;
constexpr unsigned int LargestWidth = 10'000;

struct PlotOptions {
    QueryOptions query;
    std::string output;
    std::string from;
    std::string to;
    unsigned int width = DefaultWidth;
    std::string theme;
    std::string title;
};

Theme themeOf(const std::string& name) {
    if (name == "light") return Theme::Light;
    return name == "dark" ? Theme::Dark : Theme::Auto;
}

std::string outputName(const PlotOptions& options) {
    if (!options.output.empty()) return options.output;
    return std::filesystem::path(options.query.file).replace_extension(".svg").string();
}

void checkObjects(const std::string& file, const std::vector<ViewedObject>& objects) {
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

// The range that is asked for, made so long that its begin and end are different pixels.
void setRange(WavePicture& picture, const ViewedRecording& recording, const PlotOptions& options) {
    const TimeRange range = timeRange(recording, options.from, options.to);
    picture.from = std::min(range.from, std::numeric_limits<long long>::max() - 1);
    picture.to = std::max(range.to, picture.from + 1);
    if (picture.from > recording.latestTime()) {
        fmt::print(stderr, "wdb: {}: {} is after the end of the recording, {}\n", recording.file(),
                   recording.formatTime(picture.from),
                   recording.formatTime(recording.latestTime()));
    }
}

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

void drawRows(WavePicture& picture, const ViewedRecording& recording,
              const std::vector<ViewedObject>& objects, const ValueFormat& format) {
    const std::vector<WdbScalarBTree*> trees =
        recording.makeTrees(scalarsOf(objects, recording.file()));
    for (const ViewedObject& viewed : objects)
        picture.rows.push_back(rowOf(viewed, recording.description()));
    joinLoneRows(picture.rows);
    if (picture.from > recording.latestTime()) return;
    const unsigned int width = waveWidth(picture);
    const RowBuilder builder(format, picture.from, picture.to, width);
    WdbScalarBTree* const* next = trees.data();
    for (std::size_t i = 0; i < objects.size(); ++i) {
        const std::size_t count = objects[i].scalarCount();
        const unsigned int columns = width / finestDetail(picture.rows[i].kind);
        builder.fill(picture.rows[i], objects[i],
                     rasterOf(recording, picture, columns, count, next));
        next += count;
        if (Interrupt::isRequested()) throw ToolExit{ExitInterrupted};
    }
}

std::string timeSpan(const WavePicture& picture) {
    return fmt::format("{} to {}", readableTime(picture.from, picture.timeUnit),
                       readableTime(picture.to, picture.timeUnit));
}

void printSummary(const PlotOptions& options, const WavePicture& picture,
                  const std::string& output) {
    if (!options.query.isJson) {
        fmt::print("{}: {} objects, {}\n", output, picture.rows.size(), timeSpan(picture));
    } else {
        const Json json = {{"picture", output},
                           {"objects", picture.rows.size()},
                           {"from", picture.from},
                           {"to", picture.to}};
        fmt::print("{}\n", toText(json));
    }
    finishOutput();
}

void runPlot(const PlotOptions& options) {
    const Interrupt interrupt;
    const ViewedRecording recording(options.query.file);
    const std::string output = outputName(options);
    std::error_code ignored;
    if (std::filesystem::equivalent(output, recording.file(), ignored)) {
        throw ToolError(output, "is the recording itself; the picture needs another name");
    }
    WavePicture picture;
    setRange(picture, recording, options);
    picture.timeUnit = recording.timeUnit();
    picture.width = options.width;
    picture.theme = themeOf(options.theme);
    picture.title = options.title;
    picture.caption = fmt::format(
        "{}, {}", std::filesystem::path(recording.file()).filename().string(), timeSpan(picture));
    const std::vector<ViewedObject> objects = selectViewedObjects(recording, options.query.objects);
    checkObjects(recording.file(), objects);
    drawRows(picture, recording, objects, options.query.format(recording));

    OutputFile file(output);
    file.put(svgDocument(picture));
    file.close();
    if (output != "-") printSummary(options, picture, output);
    recording.throwIfDamaged();
}

}  // namespace

void addPlotVerb(CLI::App& tool) {
    auto options = std::make_shared<PlotOptions>();
    CLI::App* verb = tool.add_subcommand("plot", "Draw the waves of objects as an SVG picture");
    options->query.addTo(*verb);
    options->query.addObjectsTo(*verb)->description(std::string(ObjectArgumentsHelp) +
                                                    ". None means all");
    verb->add_option("-o,--output", options->output,
                     "The picture, replaced if it exists; - is standard output. FILE with the "
                     "ending .svg unless given");
    verb->add_option("--from", options->from, "First time: 120ns, 1.5us, or in units of the file");
    verb->add_option("--to", options->to, "Last time");
    verb->add_option("--width", options->width, "Pixels from edge to edge")
        ->check(CLI::Range(LeastWidth, LargestWidth))
        ->capture_default_str();
    verb->add_option("--theme", options->theme, "Colours; auto follows the reader's preference")
        ->check(CLI::IsMember({"light", "dark", "auto"}))
        ->option_text("light|dark|auto");
    verb->add_option("--title", options->title,
                     "A line above the waves, with the file's name and the time span below it");
    verb->footer(
        "Example: wdb plot run.wdb top.clk 'top.cpu.*' -o cpu.svg --from 1us --to 2us\n"
        "Shaded parts changed too often to be drawn. Once the objects are indexed, a picture "
        "takes\n"
        "hardly longer the more changes it stands for.");
    verb->callback([options] { runPlot(*options); });
}

}  // namespace Korvel
