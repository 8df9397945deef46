#include "ask/VcdExport.h"

#include "Interrupt.h"
#include "ask/ObjectChanges.h"
#include "ask/ValueFormat.h"
#include "ask/VcdHeader.h"
#include "ask/VcdWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>

namespace Korvel {

namespace {

constexpr long long LastTime = std::numeric_limits<long long>::max();

// Digits that readers put back on the left by themselves.
std::string_view shortened(std::string_view digits) {
    const char first = digits.front();
    std::size_t kept = digits.find_first_not_of(first);
    if (kept == std::string_view::npos) kept = digits.size();
    const bool isExtension = kept < digits.size() && first == '0' && digits[kept] == '1';
    if (first != '1' && !isExtension) --kept;
    return first == '1' ? digits : digits.substr(kept);
}

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// When dumping was switched, in time order, every switch changing something.
struct DumpSwitch {
    long long time = 0;
    bool isOn = false;
};

std::vector<DumpSwitch> switchesOf(const DesignDescription* description) {
    std::vector<DumpSwitch> switches;
    if (description == nullptr) return switches;
    std::vector<Blackout> blackouts = description->blackouts();
    std::sort(blackouts.begin(), blackouts.end(),
              [](const Blackout& a, const Blackout& b) { return a.start < b.start; });
    long long lastEnd = 0;
    for (const Blackout& blackout : blackouts) {
        const long long start = std::max<long long>(blackout.start, lastEnd);
        if (blackout.end <= start) continue;
        switches.push_back({start, false});
        lastEnd = blackout.end;
        if (blackout.end == OpenEnd) break;
        switches.push_back({lastEnd, true});
    }
    return switches;
}

class Exporter {
public:
    Exporter(OutputFile& output, const ViewedRecording& recording, const VcdSignals& signals)
        : m_output(output),
          m_signals(signals.signals),
          m_format(recording.description(), recording.strings(), Radix::Binary),
          m_switches(switchesOf(recording.description())),
          m_latestTime(std::max(0LL, recording.latestTime())),
          m_changes(recording, m_signals, {0, LastTime}, 0),
          m_triggers(m_signals.size()) {}

    void write(ExportResult& result, const std::function<void(double)>& onProgress);

private:
    void writeStep(long long time);
    void writeChanges();
    void writeValue(std::size_t signal);
    bool isSwitchedAt(long long time) const {
        return m_nextSwitch < m_switches.size() && m_switches[m_nextSwitch].time == time;
    }

    OutputFile& m_output;
    const std::vector<ViewedObject>& m_signals;
    ValueFormat m_format;
    std::vector<DumpSwitch> m_switches;
    std::size_t m_nextSwitch = 0;
    long long m_latestTime;
    ObjectChanges m_changes;
    bool m_hasChanges = false;              // m_changes is at a time that is not written yet
    std::vector<unsigned char> m_triggers;  // by signal: of an event, those written so far
    std::uint64_t m_written = 0;
    std::string m_line;
};

void Exporter::write(ExportResult& result, const std::function<void(double)>& onProgress) {
    m_hasChanges = m_changes.next();
    const double span = std::max(1.0, static_cast<double>(m_latestTime));
    long long time = 0;
    for (bool isMore = true; isMore && !result.isInterrupted;) {
        writeStep(time);
        result.endTime = time;
        result.isInterrupted = Interrupt::isRequested();
        onProgress(static_cast<double>(time) / span);
        const bool isSwitchLeft = m_nextSwitch < m_switches.size();
        isMore = m_hasChanges || isSwitchLeft;
        if (m_hasChanges) time = m_changes.time();
        if (isSwitchLeft && !(m_hasChanges && time < m_switches[m_nextSwitch].time)) {
            time = m_switches[m_nextSwitch].time;
        }
    }
    if (!result.isInterrupted && result.endTime < m_latestTime) {
        result.endTime = m_latestTime;
        m_output.put(fmt::format("#{}\n", m_latestTime));
    }
    result.changes = m_written;
}

// Dumping may end, and begin again, at one time. Values of that time come with the first switch.
void Exporter::writeStep(long long time) {
    m_output.put(fmt::format("#{}\n", time));
    const bool isSwitched = time != 0 && isSwitchedAt(time);
    if (time == 0) m_output.put("$dumpvars\n");
    if (isSwitched) m_output.put(m_switches[m_nextSwitch++].isOn ? "$dumpon\n" : "$dumpoff\n");
    if (m_hasChanges && m_changes.time() == time) writeChanges();
    if (time == 0 || isSwitched) m_output.put("$end\n");
    while (isSwitchedAt(time)) {
        m_output.put(m_switches[m_nextSwitch++].isOn ? "$dumpon\n$end\n" : "$dumpoff\n$end\n");
    }
}

void Exporter::writeChanges() {
    for (const std::size_t signal : m_changes.changed())
        writeValue(signal);
    m_hasChanges = m_changes.next();
}

void Exporter::writeValue(std::size_t signal) {
    const ViewedObject& viewed = m_signals[signal];
    const ViewedValue value = m_changes.value(signal);
    const std::string code = vcdCode(static_cast<std::uint32_t>(signal));
    m_line.clear();
    switch (vcdFormOf(viewed)) {
        case VcdValueForm::Digits: {
            std::string digits = m_format.digits(viewed, value);
            // Some converters pass over single letters of nine states that are not small.
            std::transform(digits.begin(), digits.end(), digits.begin(), lowered);
            const bool isFourState =
                viewed.object.representation == ValueRepresentation::VerilogFourState;
            if (viewed.isBit()) {
                m_line = digits + code + '\n';
            } else {
                m_line = fmt::format(
                    "b{} {}\n", isFourState ? shortened(digits) : std::string_view(digits), code);
            }
            break;
        }
        case VcdValueForm::Real:
            m_line = fmt::format("r{} {}\n", m_format.plainText(viewed, value), code);
            break;
        case VcdValueForm::Text:
            m_line =
                fmt::format("s{} {}\n", escapeVcdText(m_format.plainText(viewed, value)), code);
            break;
        case VcdValueForm::Event:
            for (; m_triggers[signal] != value.bytes.front(); ++m_triggers[signal])
                m_line += '1' + code + '\n';
            break;
    }
    m_output.put(m_line);
    ++m_written;
}

}  // namespace

ExportResult exportVcd(OutputFile& output, const ViewedRecording& recording,
                       const std::vector<ViewedObject>& objects, bool hasAllScopes,
                       const std::function<void(double)>& onProgress) {
    ExportResult result;
    result.variables = objects.size();
    const VcdSignals signals(objects);
    Exporter exporter(output, recording, signals);
    writeVcdHeader(output, recording, objects, signals, hasAllScopes);
    exporter.write(result, onProgress);
    return result;
}

}  // namespace Korvel
