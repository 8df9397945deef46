#include "VerifyVerb.h"

#include "ProgressBar.h"
#include "ToolError.h"
#include "inspect/Json.h"
#include "inspect/Verifier.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace Korvel {

namespace {

struct VerifyOptions {
    std::string file;
    std::size_t limit = 100;
    bool isJson = false;
};

Json toJson(const Finding& finding) {
    Json json = {{"severity", toString(finding.severity)}, {"part", finding.place.part}};
    const auto add = [&json](const char* name, std::int64_t value) {
        if (value >= 0) json[name] = value;
    };
    add("bucket", finding.place.bucket);
    add("node", finding.place.node);
    add("entry", finding.place.entry);
    add("block", finding.place.block);
    add("event", finding.place.event);
    add("offset", finding.place.offset);
    json["text"] = finding.text;
    return json;
}

void printJson(const VerifyOptions& options, const FindingList& list,
               const VerifySummary& summary) {
    Json findings = Json::array();
    for (const Finding& finding : list.findings())
        findings.push_back(toJson(finding));
    const Json json = {{"file", options.file},
                       {"sound", list.count(Severity::Error) == 0},
                       {"errors", list.count(Severity::Error)},
                       {"warnings", list.count(Severity::Warning)},
                       {"sections", summary.sections},
                       {"blocks", summary.blocks},
                       {"events", summary.events},
                       {"strings", summary.strings},
                       {"objects", summary.objects},
                       {"findings", findings}};
    fmt::print("{}\n", toText(json, 2));
}

void printText(const VerifyOptions& options, const FindingList& list,
               const VerifySummary& summary) {
    for (const Finding& finding : list.findings()) {
        fmt::print("{:<7}  {}: {}\n", toString(finding.severity), toString(finding.place),
                   finding.text);
    }
    const auto all = list.count(Severity::Error) + list.count(Severity::Warning) +
                     list.count(Severity::Information);
    if (all > list.findings().size()) {
        fmt::print("and {} more findings (--limit shows them)\n", all - list.findings().size());
    }
    fmt::print("{}: {}: {} sections, {} objects, {} blocks, {} events, {} strings, {} warnings\n",
               options.file, list.count(Severity::Error) == 0 ? "sound" : "DAMAGED",
               summary.sections, summary.objects, summary.blocks, summary.events, summary.strings,
               list.count(Severity::Warning));
}

void runVerify(const VerifyOptions& options) {
    const RecordingFileBytes bytes(options.file);
    FindingList list(options.limit);
    VerifySummary summary;
    {
        Inspection inspection(bytes, list);
        ProgressBar bar("verify");
        summary = verifyRecording(inspection, [&bar](double fraction) { bar.update(fraction); });
    }
    if (options.isJson) {
        printJson(options, list, summary);
    } else {
        printText(options, list, summary);
    }
    const auto errors = list.count(Severity::Error);
    if (errors == 0) return;
    throw ToolError(options.file, fmt::format("the recording is damaged, {} fault{} found", errors,
                                              errors == 1 ? "" : "s"));
}

}  // namespace

void addVerifyVerb(CLI::App& tool) {
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* verb = tool.add_subcommand("verify", "Check every structure of a recording");
    verb->add_option("FILE", options->file, "The recording")->required();
    verb->add_option("--limit", options->limit, "Most findings to show; all are counted")
        ->capture_default_str();
    verb->add_flag("--json", options->isJson, "Print the findings as JSON");
    verb->footer(
        "ERROR is damage: no writer leaves it, the exit status is 1. WARNING is what a killed\n"
        "simulation or a careless writer leaves, the exit status is 0. Numbers of nodes, blocks\n"
        "and offsets are places in the file; entries, events and buckets are counted from 0.");
    verb->callback([options] { runVerify(*options); });
}

}  // namespace Korvel
