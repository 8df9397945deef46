#include "plot/RowRaster.h"

#include <algorithm>

namespace Korvel {

namespace {

constexpr unsigned int TypeShift = 8;

std::uint16_t packed(const WdbByteValue& entry) {
    return static_cast<std::uint16_t>(entry.type << TypeShift | entry.value);
}

}  // namespace

RowRaster::RowRaster(long long from, long long to, long long end, std::size_t columns,
                     std::size_t scalars)
    : m_from(from),
      m_to(to),
      m_end(end),
      m_scalars(scalars),
      m_resolution((to - from - 1) / static_cast<long long>(columns) + 1),
      m_columns(columns),
      m_states(columns * scalars) {}

std::size_t RowRaster::columnOf(long long time) const {
    const double place = static_cast<double>(time - m_from) / static_cast<double>(m_to - m_from) *
                         static_cast<double>(m_columns.size());
    return std::min(static_cast<std::size_t>(place), m_columns.size() - 1);
}

void RowRaster::markChange(long long time) {
    Column& column = m_columns[columnOf(time)];
    if (column.firstChange == NoChange || time < column.firstChange) column.firstChange = time;
    column.lastChange = std::max(column.lastChange, time);
}

void RowRaster::fill(std::size_t scalar, std::size_t begin, std::size_t end,
                     const WdbByteValue& entry) {
    for (std::size_t column = begin; column < end; ++column)
        m_states[column * m_scalars + scalar] = packed(entry);
}

void RowRaster::addScalar(std::size_t scalar, const std::vector<WdbTimeByteValues>& snapshots) {
    for (std::size_t i = 0; i < snapshots.size(); ++i) {
        const WdbByteValue entry = snapshots[i].values.at(0);
        const bool isLast = i + 1 == snapshots.size();
        const long long begin = std::clamp(snapshots[i].time, m_from, m_end);
        const long long end = isLast ? m_end : std::clamp(snapshots[i + 1].time, begin, m_end);
        // Two changes in one column leave the later value.
        fill(scalar, columnOf(begin), isLast ? m_columns.size() : columnOf(end), entry);
        if (entry.type == WdbByteValue::NoValue || snapshots[i].time < m_from) continue;
        markChange(begin);
        if (begin == m_from) m_isCut = false;
    }
}

std::vector<RowSpan> RowRaster::spans() const {
    std::vector<RowSpan> spans;
    long long covered = m_from;  // up to where spans say what there is
    long long last = m_from;     // latest change so far
    std::size_t lastColumn = 0;
    const auto closeGap = [&](long long next, bool isWideEnough) {
        if (!isWideEnough) return;
        if (covered < last) spans.push_back({covered, last, true, 0});
        spans.push_back({last, next, false, lastColumn});
        covered = next;
    };
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        const Column& column = m_columns[i];
        if (column.firstChange == NoChange) continue;
        closeGap(column.firstChange, column.firstChange - last >= m_resolution);
        last = column.lastChange;
        lastColumn = i;
    }
    closeGap(m_end, m_end - last >= m_resolution || last == m_from);
    if (covered < m_end || (last == m_end && last > m_from))
        spans.push_back({covered, m_end, true, 0});
    return spans;
}

std::vector<WdbByteValue> RowRaster::entries(const RowSpan& span) const {
    std::vector<WdbByteValue> entries(m_scalars);
    for (std::size_t i = 0; i < m_scalars; ++i) {
        const unsigned int state = m_states[span.column * m_scalars + i];
        entries[i] = {state >> TypeShift, static_cast<unsigned char>(state)};
    }
    return entries;
}

}  // namespace Korvel
