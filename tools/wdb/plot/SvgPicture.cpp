#include "plot/SvgPicture.h"

#include "plot/RowShapes.h"
#include "plot/SvgStyle.h"
#include "plot/SvgText.h"
#include "plot/TimeAxis.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Korvel {

namespace {

constexpr double Margin = 12;
constexpr double RightMargin = 22;  // takes half of the last time's label
constexpr double TitleHeight = 26;
constexpr double CaptionHeight = 16;
constexpr double AxisHeight = 22;
constexpr double HeadingHeight = 22;
constexpr double HeadingBaseline = 16;
constexpr double NameBaseline = 16;
constexpr double NameIndent = 10;         // below a heading
constexpr double NameGap = 10;            // between names and waves
constexpr double LargestNameShare = 0.3;  // of the picture's width
constexpr double LeastWaveWidth = 40;
constexpr double TickSpacing = 80;
constexpr double TickGap = 16;             // between two labels
constexpr std::size_t ShortestName = 8;    // characters, however narrow the picture
constexpr std::size_t RowsOfOneAxis = 24;  // with more the axis is repeated below them

class SvgPicture {
public:
    explicit SvgPicture(const WavePicture& picture);

    double waveWidth() const { return m_waveWidth; }
    std::string draw();

private:
    void layOut();
    void drawTitle();
    void drawAxis();
    void drawLabels(double baseline);
    void drawRows();
    bool hasHeading(std::size_t row) const;
    double x(long long time) const;

    const WavePicture& m_picture;
    std::size_t m_mostNameCharacters;
    double m_waveLeft = 0;
    double m_waveWidth = 0;
    double m_axisTop = 0;
    double m_rowsTop = 0;
    double m_rowsHeight = 0;
    double m_height = 0;
    std::vector<AxisTick> m_ticks;
    std::string m_out;
};

SvgPicture::SvgPicture(const WavePicture& picture) : m_picture(picture) {
    const double share = picture.width * LargestNameShare;
    m_mostNameCharacters = std::max(ShortestName, static_cast<std::size_t>(share / NameCharacter));
    std::size_t longest = 0;
    for (const WaveRow& row : picture.rows)
        longest = std::max(longest, displayText(row.name).size());
    longest = std::min(longest, m_mostNameCharacters);
    m_waveLeft =
        std::round(Margin + NameIndent + static_cast<double>(longest) * NameCharacter + NameGap);
    m_waveWidth = std::max(LeastWaveWidth, picture.width - m_waveLeft - RightMargin);
}

bool SvgPicture::hasHeading(std::size_t row) const {
    const std::string& scope = m_picture.rows[row].scope;
    return row == 0 ? !scope.empty() : scope != m_picture.rows[row - 1].scope;
}

void SvgPicture::layOut() {
    m_axisTop = Margin + (m_picture.title.empty() ? 0 : TitleHeight + CaptionHeight);
    m_rowsTop = m_axisTop + AxisHeight;
    m_rowsHeight = static_cast<double>(m_picture.rows.size()) * RowHeight;
    for (std::size_t i = 0; i < m_picture.rows.size(); ++i)
        m_rowsHeight += hasHeading(i) ? HeadingHeight : 0;
    const bool isLong = m_picture.rows.size() > RowsOfOneAxis;
    m_height = m_rowsTop + m_rowsHeight + (isLong ? AxisHeight : 0) + Margin;
    for (auto steps = static_cast<std::size_t>(m_waveWidth / TickSpacing) + 1;; steps /= 2) {
        m_ticks = axisTicks(m_picture.from, m_picture.to, steps, m_picture.timeUnit);
        if (m_ticks.size() < 2 || steps < 2) return;
        std::size_t longest = 0;
        for (const AxisTick& tick : m_ticks)
            longest = std::max(longest, tick.label.size());
        const double spacing = x(m_ticks[1].time) - x(m_ticks[0].time);
        if (static_cast<double>(longest) * AxisCharacter + TickGap <= spacing) return;
    }
}

double SvgPicture::x(long long time) const {
    return static_cast<double>(time - m_picture.from) /
           static_cast<double>(m_picture.to - m_picture.from) * m_waveWidth;
}

void SvgPicture::drawTitle() {
    if (m_picture.title.empty()) return;
    const auto most = static_cast<std::size_t>((m_picture.width - 2 * Margin) / 10);
    m_out += fmt::format("<text class=\"title\" x=\"{}\" y=\"{}\">{}</text>\n", pixels(Margin),
                         pixels(Margin + 14), escaped(cutEnd(displayText(m_picture.title), most)));
    m_out += fmt::format("<text class=\"caption\" x=\"{}\" y=\"{}\">{}</text>\n", pixels(Margin),
                         pixels(Margin + 32), escaped(displayText(m_picture.caption)));
}

// The labels at one height. The last one is moved so far that it does not leave the picture.
void SvgPicture::drawLabels(double baseline) {
    for (const AxisTick& tick : m_ticks) {
        const double half = static_cast<double>(tick.label.size()) * AxisCharacter / 2;
        const double place = std::min(m_waveLeft + x(tick.time), m_picture.width - half - 2);
        m_out += fmt::format("<text class=\"tick\" x=\"{}\" y=\"{}\">{}</text>\n", pixels(place),
                             pixels(baseline), escaped(displayText(tick.label)));
    }
}

void SvgPicture::drawAxis() {
    std::string lines;
    for (const AxisTick& tick : m_ticks)
        lines += fmt::format("M{} {}v{}", pixels(m_waveLeft + x(tick.time)), pixels(m_rowsTop - 5),
                             pixels(m_rowsHeight + 5));
    m_out += fmt::format("<path class=\"grid\" d=\"{}\"/>\n", lines);
    m_out += fmt::format("<path class=\"edge\" d=\"M{} {}h{}\"/>\n", pixels(m_waveLeft),
                         pixels(m_rowsTop), pixels(m_waveWidth));
    drawLabels(m_axisTop + 12);
    if (m_picture.rows.size() > RowsOfOneAxis) drawLabels(m_rowsTop + m_rowsHeight + 14);
}

void SvgPicture::drawRows() {
    std::string waves;
    double top = 0;
    const auto drawText = [&](const char* style, double x, double y, std::u32string text,
                              std::size_t most) {
        m_out +=
            fmt::format("<text class=\"{}\" x=\"{}\" y=\"{}\">{}</text>\n", style, pixels(x),
                        pixels(m_rowsTop + top + y), escaped(cutMiddle(std::move(text), most)));
    };
    const auto headingRoom = static_cast<std::size_t>(m_picture.width / NameCharacter);
    for (std::size_t i = 0; i < m_picture.rows.size(); ++i) {
        const WaveRow& row = m_picture.rows[i];
        if (hasHeading(i)) {
            drawText("heading", Margin, HeadingBaseline, displayText(row.scope), headingRoom);
            top += HeadingHeight;
        }
        drawText("name", Margin + (row.scope.empty() ? 0 : NameIndent), NameBaseline,
                 displayText(row.name), m_mostNameCharacters);
        waves += fmt::format("<g transform=\"translate(0 {})\">\n{}</g>\n", pixels(top),
                             rowShapes(row, m_waveWidth));
        top += RowHeight;
    }
    // A viewport of its own cuts off what goes on beyond the picture's ends; a pixel more shows
    // edges that stand there.
    m_out += fmt::format(
        "<svg x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" viewBox=\"-1 0 {} {}\">\n{}</svg>\n",
        pixels(m_waveLeft - 1), pixels(m_rowsTop), pixels(m_waveWidth + 2),
        pixels(m_rowsHeight + 1), pixels(m_waveWidth + 2), pixels(m_rowsHeight + 1), waves);
}

std::string SvgPicture::draw() {
    layOut();
    m_out = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
        "viewBox=\"0 0 {0} {1}\">\n<style>\n{2}</style>\n"
        "<rect class=\"page\" width=\"{0}\" height=\"{1}\"/>\n",
        m_picture.width, pixels(m_height), styleSheet(m_picture.theme));
    drawTitle();
    drawAxis();
    drawRows();
    return m_out + "</svg>\n";
}

}  // namespace

unsigned int waveWidth(const WavePicture& picture) {
    return static_cast<unsigned int>(SvgPicture(picture).waveWidth());
}

std::string svgDocument(const WavePicture& picture) {
    return SvgPicture(picture).draw();
}

}  // namespace Korvel
