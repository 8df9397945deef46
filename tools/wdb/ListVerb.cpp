#include "ListVerb.h"

#include "ToolError.h"
#include "inspect/Json.h"
#include "inspect/ObjectSelection.h"
#include "inspect/OpenRecording.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

namespace Korvel {

namespace {

struct ListOptions {
    std::string file;
    std::string glob;
    bool isJson = false;
};

// The earliest declared object of the same bytes; the object itself when there is no other.
ObjectId firstAlias(const DesignDescription& description, const ObjectView& object) {
    const IdList all = description.objectsByAddress();
    const auto begin = std::partition_point(all.begin(), all.end(), [&](ObjectId id) {
        return description.object(id).address < object.address;
    });
    return *std::find_if(begin, all.end(), [&](ObjectId id) {
        return id == object.id || description.object(id).size == object.size;
    });
}

void printObject(const DesignDescription& description, const ObjectView& object, bool isJson) {
    const std::string name = description.objectPathWithRange(object.id);
    const std::string type(object.type == NoType ? std::string_view()
                                                 : description.typeName(object.type));
    const ObjectId alias = firstAlias(description, object);
    const std::string aliasName =
        alias == object.id ? std::string() : description.objectPathWithRange(alias);
    if (!isJson) {
        const std::string_view direction =
            object.direction == Direction::Implicit ? "" : toString(object.direction);
        fmt::print("{:>10} {:>6} {:>6}  {:<9} {:<17} {}{}{}{}{}\n", object.address, object.size,
                   object.width, direction, toString(object.kind), name, type.empty() ? "" : " : ",
                   type, aliasName.empty() ? "" : " = ", aliasName);
        return;
    }
    Json json = {{"name", name},
                 {"kind", toString(object.kind)},
                 {"representation", toString(object.representation)},
                 {"range", toString(object.range)},
                 {"width", object.width},
                 {"direction", toString(object.direction)},
                 {"address", object.address},
                 {"size", object.size},
                 {"signed", object.isSigned}};
    if (!type.empty()) json["type"] = type;
    if (!aliasName.empty()) json["aliasOf"] = aliasName;
    fmt::print("{}\n", toText(json));
}

void listObjects(const ListOptions& options, const DesignDescription& description) {
    std::vector<std::string> patterns;
    if (!options.glob.empty()) patterns.push_back(options.glob);
    std::string unmatched;
    const std::vector<ObjectId> selected = selectObjects(description, patterns, unmatched);
    if (!unmatched.empty()) {
        throw ToolError(options.file, fmt::format("no object is called '{}'", unmatched));
    }
    if (!options.isJson) {
        fmt::print("{:>10} {:>6} {:>6}  {:<9} {:<17} {}\n", "address", "size", "width", "direction",
                   "kind", "name : type = same as");
    }
    for (const ObjectId id : selected)
        printObject(description, description.object(id), options.isJson);
}

// What changed at an address, as far as events tell.
struct ChangedAddress {
    std::uint32_t size = 0;  // of the longest change
    std::uint64_t changes = 0;
};

void printAddresses(const std::map<std::int64_t, ChangedAddress>& changed, bool isJson) {
    for (const auto& [address, what] : changed) {
        if (isJson) {
            const Json json = {
                {"address", address}, {"size", what.size}, {"changes", what.changes}};
            fmt::print("{}\n", toText(json));
        } else {
            fmt::print("{:>10} {:>6} {:>10}\n", address, what.size, what.changes);
        }
    }
}

// Bucket by bucket, so that memory does not grow with the recording. A damaged file can name
// more addresses than a bucket has.
void listAddresses(const ListOptions& options, OpenRecording& recording) {
    constexpr std::size_t MostAddresses = 1U << 20;
    if (!options.glob.empty()) {
        throw ToolError(options.file, "the design is not described, so that no object has a name");
    }
    fmt::print(stderr, "wdb: {}: the design is not described; changed addresses are listed\n",
               options.file);
    if (!options.isJson) fmt::print("{:>10} {:>6} {:>10}\n", "address", "size", "changes");
    if (!recording.events()) return;
    for (const UsedBucket& bucket : recording.events()->buckets) {
        std::map<std::int64_t, ChangedAddress> changed;
        EventBlockCursor blocks(recording.inspection(), *recording.events(), bucket);
        while (blocks.next()) {
            for (std::size_t i = 0; i < blocks.eventCount(); ++i) {
                const WdbEvent event = blocks.event(i);
                ChangedAddress& what = changed[event.getStartAddress()];
                what.size = std::max(what.size, event.getValuelength());
                ++what.changes;
            }
            if (changed.size() < MostAddresses) continue;
            printAddresses(changed, options.isJson);
            changed.clear();
        }
        printAddresses(changed, options.isJson);
    }
}

void runList(const ListOptions& options) {
    OpenRecording recording(options.file);
    const DesignDescription* description = recording.description();
    if (description != nullptr) {
        listObjects(options, *description);
    } else {
        listAddresses(options, recording);
    }
    recording.throwIfDamaged();
}

}  // namespace

void addListVerb(CLI::App& tool) {
    auto options = std::make_shared<ListOptions>();
    CLI::App* verb = tool.add_subcommand("list", "List the objects of a recording");
    verb->add_option("FILE", options->file, "The recording")->required();
    verb->add_option("GLOB", options->glob,
                     "Full names to list: * stands for any characters, ? for one");
    verb->add_flag("--json", options->isJson, "Print one JSON object a line");
    verb->footer(
        "A recording that does not describe its design has no names: then the addresses that\n"
        "changed are listed, with the bytes of the longest change and the number of changes.");
    verb->callback([options] { runList(*options); });
}

}  // namespace Korvel
