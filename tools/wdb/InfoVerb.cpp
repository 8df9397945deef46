#include "InfoVerb.h"

#include "ProgressBar.h"
#include "inspect/Json.h"
#include "inspect/OpenRecording.h"
#include "inspect/TimeText.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

namespace Korvel {

namespace {

struct InfoOptions {
    std::string file;
    bool isFull = false;
    bool isJson = false;
};

struct Counts {
    std::uint64_t blocks = 0;
    std::uint64_t storedBytes = 0;
    std::uint64_t nodes = 0;
    std::size_t treeDepth = 0;  // of the deepest
    // Known only once all blocks were unpacked.
    std::uint64_t events = 0;
    std::uint64_t unpackedBytes = 0;
    std::optional<std::int64_t> firstTime;
    std::optional<std::int64_t> lastTime;
};

class InfoReport {
public:
    InfoReport(const InfoOptions& options, OpenRecording& recording)
        : m_options(options), m_recording(recording) {}

    Json build();

private:
    Json header() const;
    Json sections() const;
    Json events();
    Json strings();
    Json description();
    Counts count(const StoredEvents& events);
    std::string timeText(std::int64_t time) { return formatTime(time, m_recording.timeUnit()); }

    const InfoOptions& m_options;
    OpenRecording& m_recording;
};

Json InfoReport::build() {
    Json json = {{"file", m_options.file}, {"bytes", m_recording.inspection().bytes().size()}};
    json["header"] = header();
    json["sections"] = sections();
    if (m_recording.events()) json["events"] = events();
    if (m_recording.strings() != nullptr) json["strings"] = strings();
    if (m_recording.description() != nullptr) json["design"] = description();
    return json;
}

Json InfoReport::header() const {
    const WdbFileHeader& header = m_recording.contents().header;
    const auto seconds = static_cast<std::time_t>(header.m_creationTime);
    return {{"version", textOfField(header.m_version)},
            {"application", header.getApplication()},
            {"created", fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(seconds))}};
}

Json InfoReport::sections() const {
    Json json = Json::array();
    for (const SectionEntry& section : m_recording.contents().sections) {
        json.push_back({{"id", section.item.getSectionID()},
                        {"version", section.item.m_version},
                        {"offset", section.item.m_offset},
                        {"size", section.item.m_size}});
    }
    return json;
}

Json InfoReport::events() {
    const StoredEvents& events = *m_recording.events();
    const WdbEventDatabaseHeader& header = events.header;
    const char* typeName = nameOfEventType(header.databaseTypeId);
    Json json = {{"type", header.databaseTypeId},
                 {"typeName", typeName == nullptr ? "not known to this build" : typeName},
                 {"addresses", header.numberOfAddresses},
                 {"addressesPerBucket", header.addressesPerBucket},
                 {"buckets", header.numberOfBuckets},
                 {"blockSize", header.eventBlockSize},
                 {"nodeCapacity", header.nodeCapacity},
                 {"latestTime", header.latestTime},
                 {"latestTimeText", timeText(header.latestTime)}};
    if (!events.isTypeKnown) return json;
    const Counts counts = count(events);
    json["bucketsUsed"] = events.buckets.size();
    json["blocks"] = counts.blocks;
    json["storedBytes"] = counts.storedBytes;
    json["nodes"] = counts.nodes;
    if (events.hasTrees()) json["treeDepth"] = counts.treeDepth;
    if (!m_options.isFull) return json;
    json["events"] = counts.events;
    json["unpackedBytes"] = counts.unpackedBytes;
    if (counts.events > 0) {
        json["storedBytesPerEvent"] =
            static_cast<double>(counts.storedBytes) / static_cast<double>(counts.events);
        json["firstTime"] = *counts.firstTime;
        json["firstTimeText"] = timeText(*counts.firstTime);
        json["lastTime"] = *counts.lastTime;
        json["lastTimeText"] = timeText(*counts.lastTime);
    }
    return json;
}

Counts InfoReport::count(const StoredEvents& events) {
    Counts counts;
    ProgressBar bar("info");
    const auto size = static_cast<double>(m_recording.inspection().bytes().size());
    for (const UsedBucket& bucket : events.buckets) {
        EventBlockCursor blocks(m_recording.inspection(), events, bucket);
        while (m_options.isFull ? blocks.next() : blocks.nextStored()) {
            ++counts.blocks;
            counts.storedBytes += blocks.storedSize();
            if (!m_options.isFull || blocks.eventCount() == 0) continue;
            counts.events += blocks.eventCount();
            counts.unpackedBytes += blocks.usedSize();
            const std::int64_t first = blocks.event(0).getTime();
            counts.firstTime = std::min(counts.firstTime.value_or(first), first);
            const std::int64_t last = *blocks.latestTime();
            counts.lastTime = std::max(counts.lastTime.value_or(last), last);
            bar.update(static_cast<double>(counts.storedBytes) / size);
        }
        counts.nodes += blocks.nodeCount();
        counts.treeDepth = std::max(counts.treeDepth, blocks.treeDepth());
    }
    return counts;
}

Json InfoReport::strings() {
    const StoredStrings& strings = *m_recording.strings();
    return {{"count", strings.stringCount()},
            {"blocks", strings.blockCount()},
            {"storedBytes", strings.storedBytes()}};
}

Json InfoReport::description() {
    const DesignDescription& description = *m_recording.description();
    Json json = {{"timeUnit", toString(description.timeUnit())},
                 {"timeZero", description.timeZero()},
                 {"objects", description.objectCount()},
                 {"scopes", description.scopeCount()},
                 {"types", description.typeCount()},
                 {"producer", description.producer()},
                 {"date", description.date()}};
    for (const std::string_view comment : description.comments())
        json["comments"].push_back(comment);
    for (const Blackout& blackout : description.blackouts()) {
        json["notDumped"].push_back(timeText(blackout.start) + " to " +
                                    (blackout.end == OpenEnd ? "the end" : timeText(blackout.end)));
    }
    return json;
}

// A label and its value, unless there is none.
void printLine(const char* label, const Json& value) {
    if (value.is_null() || value == "") return;
    const std::string text = value.is_string() ? value.get<std::string>() : toText(value);
    fmt::print("{:<14} {}\n", label, text);
}

void printEvents(const Json& events, bool isFull) {
    printLine("event section", fmt::format("type {}, {}", toText(events["type"]),
                                           events["typeName"].get<std::string>()));
    printLine("addresses",
              fmt::format("{} in {} buckets of {}", toText(events["addresses"]),
                          toText(events["buckets"]), toText(events["addressesPerBucket"])));
    printLine("latest time", events["latestTimeText"]);
    if (!events.contains("blocks")) return;
    printLine("blocks",
              fmt::format("{} in {} used buckets, {} bytes stored", toText(events["blocks"]),
                          toText(events["bucketsUsed"]), toText(events["storedBytes"])));
    if (events.contains("treeDepth")) {
        printLine("trees", fmt::format("{} nodes, up to {} levels", toText(events["nodes"]),
                                       toText(events["treeDepth"])));
    }
    if (!isFull) return;
    printLine("events", fmt::format("{}, {} bytes unpacked", toText(events["events"]),
                                    toText(events["unpackedBytes"])));
    if (!events.contains("firstTime")) return;
    printLine("", fmt::format("{:.2f} bytes an event stored",
                              events["storedBytesPerEvent"].get<double>()));
    printLine("changes", events["firstTimeText"].get<std::string>() + " to " +
                             events["lastTimeText"].get<std::string>());
}

void printText(const Json& info, bool isFull) {
    printLine("file", info["file"]);
    printLine("bytes", info["bytes"]);
    printLine("version", info["header"]["version"]);
    printLine("application", info["header"]["application"]);
    printLine("created", info["header"]["created"]);
    for (const Json& section : info["sections"]) {
        printLine("section",
                  fmt::format("{:<24} version {}, {} bytes at {}", section["id"].get<std::string>(),
                              toText(section["version"]), toText(section["size"]),
                              toText(section["offset"])));
    }
    if (info.contains("events")) printEvents(info["events"], isFull);
    if (info.contains("strings")) {
        printLine(
            "strings",
            fmt::format("{} in {} blocks, {} bytes stored", toText(info["strings"]["count"]),
                        toText(info["strings"]["blocks"]), toText(info["strings"]["storedBytes"])));
    }
    if (!info.contains("design")) {
        printLine("design", "not described: objects are known by address only");
        return;
    }
    const Json& design = info["design"];
    printLine("design", fmt::format("{} objects in {} scopes, {} types", toText(design["objects"]),
                                    toText(design["scopes"]), toText(design["types"])));
    printLine("time unit", design["timeUnit"]);
    if (design["timeZero"] != 0) printLine("time zero", design["timeZero"]);
    printLine("producer", design["producer"]);
    printLine("date", design["date"]);
    for (const char* list : {"comments", "notDumped"}) {
        if (!design.contains(list)) continue;
        for (const Json& line : design[list])
            printLine(list, line);
    }
}

void runInfo(const InfoOptions& options) {
    OpenRecording recording(options.file);
    const Json info = InfoReport(options, recording).build();
    if (options.isJson) {
        fmt::print("{}\n", toText(info, 2));
    } else {
        printText(info, options.isFull);
    }
    recording.throwIfDamaged();
}

}  // namespace

void addInfoVerb(CLI::App& tool) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* verb = tool.add_subcommand("info", "Show what a recording holds");
    verb->add_option("FILE", options->file, "The recording")->required();
    verb->add_flag("--full", options->isFull, "Unpack all blocks, to count events and their bytes");
    verb->add_flag("--json", options->isJson, "Print as JSON");
    verb->footer(
        "Without --full no block is unpacked: blocks and strings are counted from the lists "
        "alone,\n"
        "and the latest time is the one that the recorder noted last.");
    verb->callback([options] { runInfo(*options); });
}

}  // namespace Korvel
