#include "FollowVerb.h"

#include "Interrupt.h"
#include "OutputFile.h"
#include "ToolError.h"
#include "follow/Follower.h"
#include "follow/RunningSimulation.h"
#include "plot/RecordingPicture.h"

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

struct FollowArguments {
    std::string directory;
    std::string output;
    std::string until;
    bool isQuiet = false;
    FollowOptions options;
};

// What was recorded before is not lost to a second run that does not say where it should go.
std::string outputName(const std::string& given, const RunningSimulation& simulation) {
    if (!given.empty()) return given;
    const std::string name = simulation.name() + ".wdb";
    std::error_code ignored;
    if (std::filesystem::exists(name, ignored)) {
        throw ToolError(name, "exists; -o gives the recording another name, or replaces it");
    }
    return name;
}

const char* toText(FollowEnd end) {
    switch (end) {
        case FollowEnd::SimulationBeganAgain:
            return "the simulation has begun again, which is not recorded";
        case FollowEnd::TimeReached:
            return "this time was to be reached";
        case FollowEnd::Interrupted:
            return "interrupted";
        default:
            return "the simulation has ended";
    }
}

// What is wrong with files shows before anybody waits, and before anything is overwritten.
void checkFiles(const FollowArguments& arguments, const std::string& output,
                const RunningSimulation& simulation) {
    checkCreatable(output);
    for (const std::string& own : {simulation.descriptionFile(), simulation.rttiFile()}) {
        if (isSameFile(output, own)) throw ToolError(output, "is the simulation's own file");
    }
    const std::string& picture = arguments.options.picture;
    if (picture.empty()) return;
    checkCreatable(picture + ".new");
    if (isSameFile(output, picture)) {
        throw ToolError(output, "is the picture as well; the recording needs another name");
    }
}

// The objects, and in @p options what else depends on the design.
std::vector<ViewedObject> readArguments(const FollowArguments& arguments,
                                        const RunningSimulation& simulation,
                                        FollowOptions& options) {
    std::vector<ViewedObject> objects;
    if (!options.query.objects.empty()) {
        objects = selectViewedObjects(simulation.descriptionFile(), simulation.description(),
                                      options.query.objects);
    }
    options.isPrinting = !objects.empty() && !arguments.isQuiet;
    if (!options.picture.empty()) checkDrawable(simulation.descriptionFile(), objects);
    if (!arguments.until.empty()) options.until = simulation.parseTime(arguments.until).roundedUp();
    return objects;
}

void runFollow(const FollowArguments& arguments) {
    const Interrupt interrupt(Interrupt::Waiting::GoesOn);
    RunningSimulation simulation(arguments.directory);
    const std::string output = outputName(arguments.output, simulation);
    checkFiles(arguments, output, simulation);
    FollowOptions options = arguments.options;
    // A description that is there already is most likely the one; nobody wants to wait for an
    // error.
    if (simulation.readDescription()) readArguments(arguments, simulation, options);
    simulation.waitForIt();
    if (!simulation.readDescription()) simulation.sayUndescribed();
    const std::vector<ViewedObject> objects = readArguments(arguments, simulation, options);

    FollowEnd end;
    std::string summary;
    {
        const ViewedRecording recording = simulation.record(output);
        Follower follower(options, recording, objects);
        end = follower.run();
        summary = fmt::format("recorded up to {}", recording.formatTime(follower.reachedTime()));
        if (options.isPrinting)
            summary += fmt::format(", {} changes printed", follower.printedCount());
        recording.throwIfDamaged();
    }
    fmt::print(stderr, "wdb: {}: {}: {}\n", output, summary, toText(end));
    if (end == FollowEnd::Interrupted) throw ToolExit{ExitInterrupted};
}

}  // namespace

void addFollowVerb(CLI::App& tool) {
    auto arguments = std::make_shared<FollowArguments>();
    FollowOptions& options = arguments->options;
    CLI::App* verb = tool.add_subcommand("follow", "Watch a running simulation, and record it");
    verb->add_option("DIR", arguments->directory, "The snapshot's directory, torq.dir/NAME")
        ->required();
    options.query.addFormatTo(*verb);
    CLI::Option* objects = options.query.addObjectsTo(*verb)->description(
        std::string(ObjectArgumentsHelp) + ". Their changes are printed as they come");
    verb->add_option("-o,--output", arguments->output,
                     "The recording, replaced if it exists. NAME.wdb in the current directory "
                     "unless given, which must not exist");
    verb->add_option(
        "--until", arguments->until,
        "Stop once the simulation has reached this time: 120ns, 1.5us, or in its units");
    verb->add_option("--plot", options.picture,
                     "Keep an SVG picture of the objects in this file, replaced if it exists")
        ->needs(objects);
    verb->add_option("--every", options.secondsAPicture, "Seconds from one picture to the next")
        ->check(CLI::Range(0.01, 1e6))
        ->capture_default_str();
    verb->add_flag("-q,--quiet", arguments->isQuiet, "Print no changes");
    verb->footer(
        "Example: wdb follow torq.dir/board top.cpu.pc 'top.uart.*' --plot board.svg\n"
        "Waits for the simulation where none is running yet. Ends when it ends, or with Ctrl-C,\n"
        "status 130; either way the recording is finished, and all changes up to then are\n"
        "printed. A second Ctrl-C leaves out what is not printed yet.");
    verb->callback([arguments] { runFollow(*arguments); });
}

}  // namespace Korvel
