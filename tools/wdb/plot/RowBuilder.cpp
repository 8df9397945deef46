#include "plot/RowBuilder.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Korvel {

namespace {

constexpr double LeastTextWidth = 12;  // pixels that a text of one character and its margins take

bool isHighImpedance(char digit) {
    return digit == 'z' || digit == 'Z';
}

bool isLone(const std::vector<WaveRow>& rows, std::size_t row) {
    const std::string& scope = rows[row].scope;
    return (row == 0 || rows[row - 1].scope != scope) &&
           (row + 1 == rows.size() || rows[row + 1].scope != scope);
}

// Empty for an outermost scope.
std::string_view parentOf(std::string_view scope) {
    const std::size_t dot = scope.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : scope.substr(0, dot);
}

}  // namespace

WaveRow rowOf(const ViewedObject& viewed, const DesignDescription* description) {
    WaveRow row;
    row.name = viewed.name;
    row.isEndTelling = viewed.hasDigits;
    if (viewed.object.representation == ValueRepresentation::Event) {
        row.kind = RowKind::Event;
    } else if (viewed.isBit()) {
        row.kind = RowKind::Bit;
    }
    if (description == nullptr || viewed.object.scope == RootScope) return row;
    std::string scope = description->scopePath(viewed.object.scope);
    if (viewed.name.starts_with(scope + ".")) {
        row.name.erase(0, scope.size() + 1);
        row.scope = std::move(scope);
    }
    return row;
}

void joinLoneRows(std::vector<WaveRow>& rows) {
    std::vector<std::size_t> parentLengths(rows.size());  // 0 where the row stays as it is
    for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
        const std::string_view parent = parentOf(rows[i].scope);
        if (parent.empty() || parent != parentOf(rows[i + 1].scope)) continue;
        if (!isLone(rows, i) || !isLone(rows, i + 1)) continue;
        parentLengths[i] = parentLengths[i + 1] = parent.size();
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (parentLengths[i] == 0) continue;
        rows[i].name = rows[i].scope.substr(parentLengths[i] + 1) + "." + rows[i].name;
        rows[i].scope.resize(parentLengths[i]);
    }
}

double RowBuilder::pixel(long long time) const {
    return static_cast<double>(time - m_from) / static_cast<double>(m_to - m_from) * m_width;
}

WaveKind RowBuilder::kindOf(const ViewedObject& viewed, const ViewedValue& value) const {
    constexpr std::string_view Unknown = "xXUW-?";
    if (value.state == ViewedValue::None) return WaveKind::None;
    if (value.state == ViewedValue::Dense) return WaveKind::Dense;
    const std::string digits = m_format.digits(viewed, value);
    if (digits.find_first_of(Unknown) != std::string::npos) return WaveKind::Unknown;
    if (!digits.empty() && std::all_of(digits.begin(), digits.end(), isHighImpedance)) {
        return WaveKind::HighImpedance;
    }
    if (!viewed.isBit()) return WaveKind::Value;
    return digits == "1" || digits == "H" ? WaveKind::High : WaveKind::Low;
}

void RowBuilder::addText(WaveSegment& segment, const ViewedObject& viewed,
                         const ViewedValue& value) const {
    const bool hasText = segment.kind == WaveKind::Value || segment.kind == WaveKind::Unknown;
    if (!hasText || !segment.text.empty() || viewed.isBit()) return;
    if (segment.end - segment.begin >= LeastTextWidth) segment.text = m_format.text(viewed, value);
}

void RowBuilder::fill(WaveRow& row, const ViewedObject& viewed, const RowRaster& raster) const {
    std::optional<ViewedValue> previous;
    for (const RowSpan& span : raster.spans()) {
        WaveSegment segment{pixel(span.begin), pixel(span.end), WaveKind::Dense, false, ""};
        ViewedValue value;
        value.state = ViewedValue::Dense;
        if (!span.isDense) value = assembleValue(viewed, raster.entries(span).data());
        // A byte may change without those of its bits that are shown, and one scalar while another
        // hides it. Two triggers of an event are two, even if the counter has come round.
        const bool isTrigger = row.kind == RowKind::Event && value.state == ViewedValue::Known;
        if (value == previous && !isTrigger) {
            row.segments.back().end = segment.end;
        } else {
            segment.kind = kindOf(viewed, value);
            segment.isCut = row.segments.empty() && raster.isCut();
            row.segments.push_back(std::move(segment));
        }
        addText(row.segments.back(), viewed, value);
        previous = std::move(value);
    }
}

}  // namespace Korvel
