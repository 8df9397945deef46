#include "plot/RowShapes.h"

#include "plot/SvgStyle.h"
#include "plot/SvgText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Korvel {

namespace {

constexpr double HighLevel = 4.5;
constexpr double LowLevel = 19.5;
constexpr double ValueBaseline = 16;
constexpr double CellSlope = 3;   // width of a cell's slanted end
constexpr double CellMargin = 5;  // between a cell's end and its text
constexpr double Beyond = 10;     // how far what is cut goes on, out of sight
constexpr double NarrowRun = 2;   // below it changes are a line, which has a colour that is seen
constexpr double ArrowWidth = 3;
constexpr std::size_t ShortestCut = 4;  // characters, the ellipsis among them

// Shapes of one row that look alike make one path; this is also the order in which paths are
// drawn, one above the other.
enum PathClass { High, Wave, Bus, Unknown, Floating, None, Dense, Run, Event, PathCount };

constexpr std::array<const char*, PathCount> ClassNames{
    "high", "wave", "bus", "unknown", "floating", "none", "dense", "run", "event"};

class RowDrawing {
public:
    RowDrawing(const WaveRow& row, double width) : m_row(row), m_width(width) {}

    std::string draw();

private:
    void drawBit(const WaveSegment& segment);
    void drawCell(const WaveSegment& segment);
    void drawEvent(const WaveSegment& segment);
    bool drawCommon(const WaveSegment& segment);
    void drawRun(const WaveSegment& segment);
    void drawLevel(const WaveSegment& segment, double level);
    void drawText(const WaveSegment& segment);
    void addBox(PathClass path, double begin, double end);
    void addCell(PathClass path, double begin, double end);
    void addLine(PathClass path, double begin, double end);

    // Where a segment is drawn: out of the picture at the ends where it goes on.
    double beginOf(const WaveSegment& segment) const {
        return segment.isCut ? -Beyond : segment.begin;
    }
    double endOf(const WaveSegment& segment) const {
        return segment.end >= m_width ? m_width + Beyond : segment.end;
    }

    const WaveRow& m_row;
    double m_width;
    std::array<std::string, PathCount> m_paths;
    std::string m_texts;
    double m_level = 0;       // where the line of a bit ended
    bool m_hasLevel = false;  // whether it did, so that the next level is joined to it
    bool m_isInWave = false;  // whether the path of waves ends there
};

std::string RowDrawing::draw() {
    for (const WaveSegment& segment : m_row.segments) {
        if (m_row.kind == RowKind::Event) {
            drawEvent(segment);
        } else if (m_row.kind == RowKind::Bit) {
            drawBit(segment);
        } else {
            drawCell(segment);
        }
    }
    std::string out;
    for (std::size_t i = 0; i < PathCount; ++i) {
        if (m_paths[i].empty()) continue;
        out += fmt::format("<path class=\"{}\" d=\"{}\"/>\n", ClassNames[i], m_paths[i]);
    }
    return out + m_texts;
}

// What looks alike in every row.
bool RowDrawing::drawCommon(const WaveSegment& segment) {
    switch (segment.kind) {
        case WaveKind::None:
            addLine(None, beginOf(segment), endOf(segment));
            return true;
        case WaveKind::HighImpedance:
            addLine(Floating, beginOf(segment), endOf(segment));
            return true;
        case WaveKind::Dense:
            drawRun(segment);
            return true;
        default:
            return false;
    }
}

void RowDrawing::drawRun(const WaveSegment& segment) {
    const bool isBit = m_row.kind == RowKind::Bit;
    if (segment.end - segment.begin >= NarrowRun) {
        addBox(isBit ? Dense : Run, segment.begin, segment.end);
        return;
    }
    m_paths[isBit ? Wave : Bus] +=
        fmt::format("M{} {}V{}", pixels((segment.begin + segment.end) / 2), pixels(HighLevel),
                    pixels(LowLevel));
}

void RowDrawing::drawBit(const WaveSegment& segment) {
    if (segment.kind == WaveKind::Low || segment.kind == WaveKind::High) {
        drawLevel(segment, segment.kind == WaveKind::High ? HighLevel : LowLevel);
        return;
    }
    if (segment.kind == WaveKind::HighImpedance && m_hasLevel && m_isInWave) {
        m_paths[Wave] += "V" + pixels(RowMiddle);
    }
    m_isInWave = false;
    m_hasLevel = segment.kind == WaveKind::HighImpedance;
    m_level = RowMiddle;
    if (drawCommon(segment)) return;
    addBox(Unknown, beginOf(segment), endOf(segment));
}

void RowDrawing::drawLevel(const WaveSegment& segment, double level) {
    const double begin = beginOf(segment);
    const double end = endOf(segment);
    if (!m_isInWave) {
        m_paths[Wave] += fmt::format("M{} {}", pixels(begin), pixels(m_hasLevel ? m_level : level));
    }
    m_paths[Wave] += fmt::format("V{}H{}", pixels(level), pixels(end));
    if (level == HighLevel) addBox(High, begin, end);
    m_level = level;
    m_hasLevel = m_isInWave = true;
}

void RowDrawing::drawCell(const WaveSegment& segment) {
    if (!drawCommon(segment)) {
        addCell(segment.kind == WaveKind::Unknown ? Unknown : Bus, beginOf(segment),
                endOf(segment));
        drawText(segment);
    }
}

void RowDrawing::drawEvent(const WaveSegment& segment) {
    if (segment.kind == WaveKind::Dense) {
        drawCommon(segment);
    } else if (segment.kind != WaveKind::None && !segment.isCut) {
        const double x = segment.begin;
        m_paths[Event] += fmt::format("M{0} {1}V{2}M{3} {4}L{0} {2}L{5} {4}", pixels(x),
                                      pixels(LowLevel), pixels(HighLevel), pixels(x - ArrowWidth),
                                      pixels(HighLevel + ArrowWidth + 1), pixels(x + ArrowWidth));
    }
}

// In the middle of what is to be seen of the cell.
void RowDrawing::drawText(const WaveSegment& segment) {
    const double room = segment.end - segment.begin - 2 * CellMargin;
    if (room < ValueCharacter) return;
    const auto most = static_cast<std::size_t>(room / ValueCharacter);
    std::u32string text = displayText(segment.text);
    if (text.empty() || (text.size() > most && most < ShortestCut)) return;
    text = m_row.isEndTelling ? cutBegin(std::move(text), most) : cutEnd(std::move(text), most);
    m_texts += fmt::format("<text class=\"value{}\" x=\"{}\" y=\"{}\">{}</text>\n",
                           segment.kind == WaveKind::Unknown ? " bad" : "",
                           pixels((segment.begin + segment.end) / 2), pixels(ValueBaseline),
                           escaped(text));
}

void RowDrawing::addBox(PathClass path, double begin, double end) {
    m_paths[path] += fmt::format("M{} {}H{}V{}H{}Z", pixels(begin), pixels(HighLevel), pixels(end),
                                 pixels(LowLevel), pixels(begin));
}

void RowDrawing::addCell(PathClass path, double begin, double end) {
    const double slope = std::min(CellSlope, (end - begin) / 2);
    const std::string left = pixels(begin + slope);
    const std::string right = pixels(end - slope);
    m_paths[path] +=
        fmt::format("M{0} {5}L{1} {3}H{2}L{4} {5}L{2} {6}H{1}Z", pixels(begin), left, right,
                    pixels(HighLevel), pixels(end), pixels(RowMiddle), pixels(LowLevel));
}

void RowDrawing::addLine(PathClass path, double begin, double end) {
    m_paths[path] += fmt::format("M{} {}H{}", pixels(begin), pixels(RowMiddle), pixels(end));
}

}  // namespace

std::string rowShapes(const WaveRow& row, double width) {
    return RowDrawing(row, width).draw();
}

}  // namespace Korvel
