#include "ValueVerb.h"

#include "ask/QueryOptions.h"
#include "inspect/Json.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace Korvel {

namespace {

struct ValueOptions {
    QueryOptions query;
    std::string time;
};

void printValues(const ViewedRecording& recording, const QueryOptions& query, long long time,
                 const std::vector<ViewedObject>& objects) {
    std::vector<WdbByteValue> entries;
    const std::vector<WdbScalar> scalars = scalarsOf(objects, query.file);
    recording.reader().getBTreeManager().getValues(time, scalars, entries);
    const ValueFormat format = query.format(recording);
    const std::size_t column = nameColumn(objects);
    const WdbByteValue* entry = entries.data();
    for (const ViewedObject& viewed : objects) {
        const ViewedValue value = assembleValue(viewed, entry);
        const std::string text = format.text(viewed, value);
        entry += viewed.scalarCount();
        if (query.isJson) {
            Json json = {{"time", time}, {"object", viewed.name}, {"value", nullptr}};
            if (value.state == ViewedValue::Known) json["value"] = text;
            fmt::print("{}\n", toText(json));
        } else {
            fmt::print("{:<{}}  {}\n", viewed.name, column, text);
        }
    }
}

void runValue(const ValueOptions& options) {
    const ViewedRecording recording(options.query.file);
    const long long time = recording.parseTime(options.time).units;
    const std::vector<ViewedObject> objects = selectViewedObjects(recording, options.query.objects);
    if (time > recording.latestTime()) {
        fmt::print(stderr, "wdb: {}: {} is after the end of the recording, {}\n", recording.file(),
                   recording.formatTime(time), recording.formatTime(recording.latestTime()));
    }
    printValues(recording, options.query, time, objects);
    finishOutput();
    recording.throwIfDamaged();
}

}  // namespace

void addValueVerb(CLI::App& tool) {
    auto options = std::make_shared<ValueOptions>();
    CLI::App* verb = tool.add_subcommand("value", "Print the values of objects at a time");
    options->query.addTo(*verb);
    options->query.addObjectsTo(*verb)->description(std::string(ObjectArgumentsHelp) +
                                                    ". None means all");
    verb->add_option("-t,--time", options->time, "120ns, 1.5us, or a number of the file's units")
        ->required();
    verb->footer(
        "Example: wdb value run.wdb -t 120ns top.cpu.pc 'top.cpu.state*' -r hex\n"
        "The value is that after all changes of the time. Nothing is indexed: a few blocks around\n"
        "the time are read. For an object that has not changed for long that may be all the "
        "blocks\n"
        "before, unless the recording has a tree over them (wdb import --database btree).");
    verb->callback([options] { runValue(*options); });
}

}  // namespace Korvel
