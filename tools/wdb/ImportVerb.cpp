#include "ImportVerb.h"

#include "Interrupt.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "import/Importer.h"
#include "korvel/IWdbWriter.h"
#include "korvel/korvelApi.h"
#include "vcd/VcdSource.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>
#include <memory>
#include <string>

namespace Korvel {

namespace {

const std::map<std::string, int> DatabaseTypes = {{"btree", IWdbWriter::MultipleBucketBtree},
                                                  {"buckets", IWdbWriter::MultipleBucket},
                                                  {"single", IWdbWriter::SingleBucket}};

struct ImportOptions {
    std::string input;
    std::string output;
    std::string database;  // empty: the writer's own choice
    bool isQuiet = false;
    bool isJson = false;
};

void printSummary(const ImportOptions& options, const ImportResult& result) {
    if (options.isJson) {
        const nlohmann::json json = {{"recording", options.output},
                                     {"scopes", result.scopes},
                                     {"objects", result.objects},
                                     {"changes", result.changes},
                                     {"endTime", result.endTime},
                                     {"timeUnit", toString(result.timeUnit)},
                                     {"complete", result.damage.empty() && !result.isInterrupted},
                                     {"damage", result.damage},
                                     {"warnings", result.warnings}};
        using ErrorHandler = nlohmann::json::error_handler_t;
        fmt::print("{}\n", json.dump(2, ' ', false, ErrorHandler::replace));
    } else if (!options.isQuiet) {
        fmt::print("{}: {} objects in {} scopes, {} value changes up to {} x {}\n", options.output,
                   result.objects, result.scopes, result.changes, result.endTime,
                   toString(result.timeUnit));
    }
}

void runImport(const ImportOptions& options) {
    const Interrupt interrupt;
    VcdFileSource dump(options.input);
    if (dump.isSameFile(options.output)) {
        throw ToolError(options.output, "is the dump itself; the recording needs another name");
    }
    const bool wasInterrupted = Interrupt::acknowledge();
    auto* writer = static_cast<IWdbWriter*>(korvelApi_getStandAloneWdbWriter());
    if (!options.database.empty()) writer->setDatabaseType(DatabaseTypes.at(options.database));
    ImportResult result;
    {
        ProgressBar bar("import");
        result = importVcd(dump, dump.name(), options.output, *writer,
                           [&bar](double fraction) { bar.update(fraction); });
    }
    for (const std::string& warning : result.warnings) {
        if (!options.isQuiet) fmt::print(stderr, "wdb: {}: warning: {}\n", dump.name(), warning);
    }
    if (result.isRecorded) printSummary(options, result);
    if (result.isInterrupted || wasInterrupted) {
        fmt::print(stderr, "wdb: {}: interrupted, {}\n", dump.name(),
                   result.isRecorded ? "recorded up to there" : "nothing is recorded");
        throw ToolExit{ExitInterrupted};
    }
    if (!result.damage.empty()) throw ToolError(dump.name(), result.damage);
}

}  // namespace

void addImportVerb(CLI::App& tool) {
    auto options = std::make_shared<ImportOptions>();
    CLI::App* verb = tool.add_subcommand("import", "Record a value-change dump (VCD)");
    verb->add_option("IN.vcd", options->input, "The dump; - reads standard input")->required();
    verb->add_option("OUT.wdb", options->output, "The recording, replaced if it exists")
        ->required();
    verb->add_option("--database", options->database, "How the recording keeps its events")
        ->check(CLI::IsMember(DatabaseTypes));
    verb->add_flag("-q,--quiet", options->isQuiet, "Say nothing but errors");
    verb->add_flag("--json", options->isJson, "Print the summary as JSON");
    verb->footer(
        "A dump that is damaged, or was cut off, is recorded up to there: the line is named on\n"
        "standard error, and the exit status is 1. Ctrl-C ends the recording likewise, status "
        "130.\n\n"
        "Databases; all show the same values:\n"
        "  buckets  one list of blocks for every 2048 addresses, as simulators record: for any "
        "use\n"
        "  btree    a tree over such blocks: wdb value is fast also for objects that have not\n"
        "           changed for long. Some 10 % larger, and of several writes of an object at one\n"
        "           time only the last is sure to be kept\n"
        "  single   one list for all addresses: smaller where few changes lie in many buckets; a\n"
        "           large design is read slower");
    verb->callback([options] { runImport(*options); });
}

}  // namespace Korvel
