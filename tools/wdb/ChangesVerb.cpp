#include "ChangesVerb.h"

#include "Interrupt.h"
#include "ToolError.h"
#include "ask/ChangePrinter.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace Korvel {

namespace {

struct ChangesOptions {
    QueryOptions query;
    std::string from;
    std::string to;
    std::string resolution;
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
};

void runChanges(const ChangesOptions& options) {
    const Interrupt interrupt;
    const ViewedRecording recording(options.query.file);
    const TimeRange range = timeRange(recording, options.from, options.to);
    const long long resolution =
        options.resolution.empty() ? 0 : recording.parseTime(options.resolution).roundedUp();
    const std::vector<ViewedObject> objects = selectViewedObjects(recording, options.query.objects);
    if (options.limit == 0) return;
    ObjectChanges changes(recording, objects, range, resolution);
    ChangePrinter printer(recording, options.query, objects);
    while (printer.count() < options.limit && changes.next()) {
        printer.add(changes, options.limit);
        if (printer.isFull()) printer.print();
        if (Interrupt::isRequested()) break;
    }
    printer.print();
    if (Interrupt::isRequested()) throw ToolExit{ExitInterrupted};
    recording.throwIfDamaged();
}

}  // namespace

void addChangesVerb(CLI::App& tool) {
    auto options = std::make_shared<ChangesOptions>();
    CLI::App* verb = tool.add_subcommand("changes", "Print the changes of objects in time order");
    options->query.addTo(*verb);
    options->query.addObjectsTo(*verb)->required();
    verb->add_option("--from", options->from, "First time: 120ns, 1.5us, or in units of the file");
    verb->add_option("--to", options->to, "Last time");
    verb->add_option("--resolution", options->resolution,
                     "Show changes of a bit that are closer together than this time as ...");
    verb->add_option("--limit", options->limit, "Most lines to print")
        ->check(CLI::NonNegativeNumber);
    verb->footer(
        "Example: wdb changes run.wdb --from 1us --to 2us top.cpu.pc 'top.uart.*'\n"
        "The values in effect at the first time come first.");
    verb->callback([options] { runChanges(*options); });
}

}  // namespace Korvel
