#include "ChangesVerb.h"

#include "Interrupt.h"
#include "ToolError.h"
#include "ask/ObjectChanges.h"
#include "ask/QueryOptions.h"
#include "inspect/Json.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
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

class ChangePrinter {
public:
    ChangePrinter(const ViewedRecording& recording, const ChangesOptions& options,
                  const std::vector<ViewedObject>& objects)
        : m_recording(recording),
          m_objects(objects),
          m_format(options.query.format(recording)),
          m_isJson(options.query.isJson),
          m_left(options.limit),
          m_column(nameColumn(objects)),
          m_shown(objects.size()) {}

    // Returns false once the limit is reached.
    bool print(long long time, std::size_t object, ViewedValue value) {
        // The edges of a dense stretch may come bit by bit.
        if (value == m_shown[object]) return true;
        const std::string& name = m_objects[object].name;
        const std::string text = m_format.text(m_objects[object], value);
        if (m_isJson) {
            Json json = {{"time", time}, {"object", name}, {"value", text}};
            if (value.state == ViewedValue::Dense) json["value"] = nullptr, json["dense"] = true;
            fmt::print("{}\n", toText(json));
        } else {
            fmt::print("{:>14}  {:<{}}  {}\n", m_recording.formatTime(time), name, m_column, text);
        }
        m_shown[object] = std::move(value);
        return --m_left > 0;
    }

private:
    const ViewedRecording& m_recording;
    const std::vector<ViewedObject>& m_objects;
    ValueFormat m_format;
    bool m_isJson;
    std::uint64_t m_left;  // lines, never 0
    std::size_t m_column;
    std::vector<ViewedValue> m_shown;  // by object
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
    ChangePrinter printer(recording, options, objects);
    bool isWanted = true;
    while (isWanted && changes.next()) {
        for (const std::size_t object : changes.changed()) {
            isWanted = printer.print(changes.time(), object, changes.value(object));
            if (!isWanted) break;
        }
        if (Interrupt::isRequested()) throw ToolExit{ExitInterrupted};
    }
    finishOutput();
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
