#include "DumpVerb.h"

#include "ToolError.h"
#include "inspect/ChangeReader.h"
#include "inspect/Json.h"
#include "inspect/ObjectSelection.h"
#include "inspect/StoredDump.h"
#include "inspect/TimeText.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace Korvel {

namespace {

struct DumpOptions {
    std::string file;
    std::vector<std::string> objects;
    std::string from;
    std::string to;
    bool hasOnlyBlocks = false;
    bool hasOnlyEvents = false;
    StoredDumpOptions stored;
};

ParsedTime timeOption(OpenRecording& recording, const std::string& text) {
    const auto time = parseTime(text, recording.timeUnit());
    if (time) return *time;
    throw ToolError(
        recording.path(),
        fmt::format(
            "'{}' is no time{}", text,
            recording.timeUnit() ? "" : " (the time unit is not known: give a plain number)"));
}

std::vector<ObjectId> wantedObjects(OpenRecording& recording, const DumpOptions& options) {
    const DesignDescription* description = recording.description();
    if (description == nullptr) {
        throw ToolError(options.file,
                        "the design is not described, so that no object has a name; "
                        "--address selects changes by address");
    }
    std::string unmatched;
    std::vector<ObjectId> objects = selectObjects(*description, options.objects, unmatched);
    if (unmatched.empty()) return objects;
    const bool isScope = !description->findScopes(unmatched).empty();
    throw ToolError(options.file,
                    isScope ? fmt::format("'{0}' is a scope; '{0}.*' is all in it", unmatched)
                            : fmt::format("no object is called '{}'", unmatched));
}

// Prints changes in columns, or as one JSON object a line.
class ChangePrinter {
public:
    ChangePrinter(OpenRecording& recording, const std::vector<ObjectId>& objects, bool isJson)
        : m_description(*recording.description()),
          m_unit(recording.timeUnit()),
          m_strings(recording.stringLookup()),
          m_isJson(isJson) {
        constexpr std::size_t WidestColumn = 48;
        for (const ObjectId id : objects) {
            if (m_nameWidth == WidestColumn) break;
            m_nameWidth =
                std::clamp(m_description.objectPathWithRange(id).size(), m_nameWidth, WidestColumn);
        }
    }

    void print(std::int64_t time, const ObjectView& object, const std::uint8_t* bytes) {
        m_value.clear();
        m_literal.clear();
        appendValueText(m_value, object, bytes, object.size, m_strings);
        appendLiteralText(m_literal, m_description, object, bytes, object.size, m_strings);
        const std::string name = m_description.objectPathWithRange(object.id);
        if (m_isJson) {
            Json json = {{"time", time}, {"object", name}, {"value", m_value}};
            if (m_literal != m_value) json["literal"] = m_literal;
            fmt::print("{}\n", toText(json));
        } else {
            fmt::print("{:>14}  {:<{}}  {}\n", formatTime(time, m_unit), name, m_nameWidth,
                       m_literal);
        }
    }

private:
    const DesignDescription& m_description;
    std::optional<TimeUnit> m_unit;
    StringLookup m_strings;
    bool m_isJson;
    std::size_t m_nameWidth = 0;
    std::string m_value;
    std::string m_literal;
};

void dumpChanges(OpenRecording& recording, const DumpOptions& options) {
    const std::vector<ObjectId> objects = wantedObjects(recording, options);
    ChangePrinter printer(recording, objects, options.stored.isJson);
    std::uint64_t left = options.stored.limit;
    if (left == 0) return;
    ChangeReader(recording, *recording.description(), objects)
        .read(options.stored.from, options.stored.to,
              [&](std::int64_t time, const ObjectView& object, const std::uint8_t* bytes) {
                  printer.print(time, object, bytes);
                  return --left > 0;
              });
}

void runDump(DumpOptions options) {
    OpenRecording recording(options.file);
    if (!options.from.empty()) {
        options.stored.from = timeOption(recording, options.from).roundedUp();
    }
    if (!options.to.empty()) options.stored.to = timeOption(recording, options.to).units;
    options.stored.hasBlocks = !options.hasOnlyEvents;
    options.stored.hasEvents = !options.hasOnlyBlocks;
    if (options.objects.empty()) {
        dumpStored(recording, options.stored);
    } else {
        dumpChanges(recording, options);
    }
    recording.throwIfDamaged();
}

}  // namespace

void addDumpVerb(CLI::App& tool) {
    auto options = std::make_shared<DumpOptions>();
    CLI::App* verb = tool.add_subcommand("dump", "Print changes of objects, or all that is stored");
    verb->add_option("FILE", options->file, "The recording")->required();
    CLI::Option* objects = verb->add_option(
        "OBJECT", options->objects,
        "Full names of objects whose changes are printed: * stands for any characters, ? for one. "
        "Without one, all blocks and events are printed as they are stored");
    verb->add_option("--from", options->from, "First time: 120ns, 1.5us, or in units of the file");
    verb->add_option("--to", options->to, "Last time");
    verb->add_option("--limit", options->stored.limit, "Most lines to print (blocks, with --raw)")
        ->check(CLI::NonNegativeNumber);
    CLI::Option* blocks = verb->add_flag("--blocks", options->hasOnlyBlocks, "Only the blocks");
    CLI::Option* events = verb->add_flag("--events", options->hasOnlyEvents, "Only the events");
    CLI::Option* address = verb->add_option("--address", options->stored.address,
                                            "Only events that change this address");
    CLI::Option* json =
        verb->add_flag("--json", options->stored.isJson, "Print one JSON object a line");
    CLI::Option* raw =
        verb->add_flag("--raw", options->stored.isRaw, "Print blocks in the library's own words");
    blocks->excludes(events);
    raw->excludes(json, events);
    for (CLI::Option* ofStored : {blocks, events, address, raw})
        objects->excludes(ofStored);
    verb->footer(
        "Changes of objects are printed in the order of time. What is stored is printed bucket by\n"
        "bucket: each block, then its events with time, first address and value bytes.");
    verb->callback([options] { runDump(*options); });
}

}  // namespace Korvel
