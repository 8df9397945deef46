#include "ExportVerb.h"

#include "Interrupt.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "ask/ObjectArguments.h"
#include "ask/QueryOptions.h"
#include "ask/VcdExport.h"
#include "inspect/Json.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Korvel {

namespace {

struct ExportOptions {
    std::string file;
    std::string output;
    std::vector<std::string> objects;
    bool isQuiet = false;
    bool isJson = false;
};

void printSummary(const ExportOptions& options, const ViewedRecording& recording,
                  const ExportResult& result) {
    // Where the dump itself goes to standard output, nothing else does.
    std::FILE* stream = options.output == "-" ? stderr : stdout;
    if (options.isJson) {
        const Json json = {{"dump", options.output},
                           {"variables", result.variables},
                           {"changes", result.changes},
                           {"endTime", result.endTime},
                           {"complete", !result.isInterrupted}};
        fmt::print(stream, "{}\n", toText(json, 2));
    } else if (!options.isQuiet && stream == stdout) {
        fmt::print("{}: {} variables, {} value changes up to {}\n", options.output,
                   result.variables, result.changes, recording.formatTime(result.endTime));
    }
}

void warnOfUnit(const ViewedRecording& recording) {
    const auto unit = recording.timeUnit();
    if (unit && parseTimeUnit(toString(*unit))) return;
    fmt::print(stderr, "wdb: {}: the time unit is {}; the dump says 1ns\n", recording.file(),
               unit ? "none that a dump can have" : "not known");
}

void runExport(const ExportOptions& options) {
    const Interrupt interrupt;
    const ViewedRecording recording(options.file);
    const std::vector<ViewedObject> objects = selectViewedObjects(recording, options.objects);
    std::error_code ignored;
    if (std::filesystem::equivalent(options.file, options.output, ignored)) {
        throw ToolError(options.output, "is the recording itself; the dump needs another name");
    }
    warnOfUnit(recording);
    OutputFile output(options.output);
    ExportResult result;
    {
        ProgressBar bar("export");
        result = exportVcd(output, recording, objects, options.objects.empty(),
                           [&bar](double fraction) { bar.update(fraction); });
    }
    output.close();
    printSummary(options, recording, result);
    if (!result.isInterrupted) return recording.throwIfDamaged();
    fmt::print(stderr, "wdb: {}: interrupted, exported up to {}\n", options.output,
               recording.formatTime(result.endTime));
    throw ToolExit{ExitInterrupted};
}

}  // namespace

void addExportVerb(CLI::App& tool) {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* verb = tool.add_subcommand("export", "Write a value-change dump (VCD)");
    verb->add_option("FILE", options->file, "The recording")->required();
    verb->add_option("OUT.vcd", options->output,
                     "The dump, replaced if it exists; - is standard output")
        ->required();
    verb->add_option("OBJECT", options->objects,
                     std::string(ObjectArgumentsHelp) + ". None means all");
    verb->add_flag("-q,--quiet", options->isQuiet, "Say nothing but errors");
    verb->add_flag("--json", options->isJson, "Print the summary as JSON");
    verb->footer(
        "Example: wdb export run.wdb run.vcd 'top.cpu.*'\n"
        "Every object has the same value at every time as in the recording. Of several values at\n"
        "one time the last one counts.");
    verb->callback([options] { runExport(*options); });
}

}  // namespace Korvel
