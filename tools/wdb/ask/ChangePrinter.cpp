#include "ask/ChangePrinter.h"

#include "inspect/Json.h"

#include <cstdio>
#include <string>
#include <utility>

namespace Korvel {

ChangePrinter::ChangePrinter(const ViewedRecording& recording, const QueryOptions& options,
                             const std::vector<ViewedObject>& objects)
    : m_recording(recording),
      m_objects(objects),
      m_format(options.format(recording)),
      m_isJson(options.isJson),
      m_column(nameColumn(objects)),
      m_shown(objects.size()) {}

void ChangePrinter::add(const ObjectChanges& changes, std::uint64_t limit) {
    for (const std::size_t object : changes.changed()) {
        if (m_count >= limit) return;
        ViewedValue value = changes.value(object);
        // The edges of a dense stretch may come bit by bit, and what was shown may come again.
        if (value != m_shown[object]) addLine(changes.time(), object, std::move(value));
    }
}

void ChangePrinter::addLine(long long time, std::size_t object, ViewedValue value) {
    const std::string& name = m_objects[object].name;
    const std::string text = m_format.text(m_objects[object], value);
    const auto out = std::back_inserter(m_text);
    if (m_isJson) {
        Json json = {{"time", time}, {"object", name}, {"value", text}};
        if (value.state == ViewedValue::Dense) json["value"] = nullptr, json["dense"] = true;
        fmt::format_to(out, "{}\n", toText(json));
    } else {
        fmt::format_to(out, "{:>14}  {:<{}}  {}\n", m_recording.formatTime(time), name, m_column,
                       text);
    }
    m_shown[object] = std::move(value);
    ++m_count;
}

void ChangePrinter::print() {
    if (m_text.size() == 0) return;
    std::fwrite(m_text.data(), 1, m_text.size(), stdout);  // finishOutput() sees what fails
    m_text.clear();
    finishOutput();
}

}  // namespace Korvel
