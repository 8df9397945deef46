#include "PlotVerb.h"

#include "Interrupt.h"
#include "OutputFile.h"
#include "ToolError.h"
#include "inspect/Json.h"
#include "plot/RecordingPicture.h"
#include "plot/SvgPicture.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace Korvel {

namespace {

constexpr unsigned int LeastWidth = 200;
constexpr unsigned int LargestWidth = 10'000;

struct PlotOptions {
    QueryOptions query;
    std::string output;
    std::string from;
    std::string to;
    unsigned int width = DefaultPictureWidth;
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
    WavePicture picture = pictureOf(recording, timeRange(recording, options.from, options.to));
    if (picture.from > recording.latestTime()) {
        fmt::print(stderr, "wdb: {}: {} is after the end of the recording, {}\n", recording.file(),
                   recording.formatTime(picture.from),
                   recording.formatTime(recording.latestTime()));
    }
    picture.width = options.width;
    picture.theme = themeOf(options.theme);
    picture.title = options.title;
    const std::vector<ViewedObject> objects = selectViewedObjects(recording, options.query.objects);
    checkDrawable(recording.file(), objects);
    const std::vector<WdbScalarBTree*> trees =
        recording.makeTrees(scalarsOf(objects, recording.file()));
    if (!drawRows(picture, recording, objects, trees, options.query.format(recording)))
        throw ToolExit{ExitInterrupted};

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
