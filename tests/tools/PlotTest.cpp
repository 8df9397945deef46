// From what the reader tells of single scalars to a picture.

#include "plot/RowBuilder.h"
#include "plot/SvgPicture.h"
#include "plot/TimeAxis.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace Korvel {
namespace {

constexpr long long Start = 1000;  // of the window, which ends 100 later and has 10 columns

// The value from a time after the window's start on: a number, '.' for none, '~' for dense.
struct Record {
    long long time;
    char shown;
};
using Records = std::vector<Record>;

RowRaster rasterOf(const std::vector<Records>& scalars, long long end) {
    RowRaster raster(Start, Start + 100, Start + end, 10, scalars.size());
    for (std::size_t i = 0; i < scalars.size(); ++i) {
        std::vector<WdbTimeByteValues> snapshots;
        for (const auto& [time, shown] : scalars[i]) {
            WdbByteValue entry{WdbByteValue::SingleValue, static_cast<unsigned char>(shown - '0')};
            if (shown == '~') entry = {WdbByteValue::DenseValue, 0};
            if (shown == '.') entry = {};
            snapshots.push_back({Start + time, {entry}});
        }
        raster.addScalar(i, snapshots);
    }
    return raster;
}

// A Verilog vector as it is drawn at one pixel a time unit: the ends of each segment, its kind and
// its text. "<" marks what began before the window.
std::string drawn(const std::vector<Records>& scalars, long long knownUntil) {
    ViewedObject viewed;
    viewed.object.width = static_cast<std::uint32_t>(scalars.size());
    viewed.object.size = 8;
    const ValueFormat format(nullptr, {}, Radix::Binary);
    WaveRow row = rowOf(viewed, nullptr);
    RowBuilder(format, Start, Start + 100, 100).fill(row, viewed, rasterOf(scalars, knownUntil));
    std::string out;
    for (const auto& [begin, end, kind, isCut, text] : row.segments)
        out += fmt::format("{}{}{:.0f}-{:.0f}{}{}", out.empty() ? "" : " ", isCut ? "<" : "", begin,
                           end, ".01vxz~"[static_cast<int>(kind)], text);
    return out;
}

struct RowCase {
    const char* fault;             // that shows here
    std::vector<Records> scalars;  // the rightmost bit first
    std::string drawn;
    long long end = 100;
};

const RowCase RowCases[] = {
    {"state", {{{0, '0'}, {20, '1'}, {40, '2'}, {60, '3'}}}, "0-200 20-401 40-60z 60-100x"},
    {"invented before the first", {{{0, '.'}, {40, '1'}}}, "<0-40. 40-1001"},
    {"pulse lost", {{{-5, '0'}, {50, '~'}, {53, '0'}}}, "<0-500 50-53~ 53-1000"},
    {"bit order", {{{0, '0'}, {50, '1'}}, {{0, '1'}, {50, '0'}}}, "0-50v10 50-100v01"},
    {"near bits", {{{0, '0'}, {48, '1'}}, {{0, '0'}, {52, '1'}}}, "0-48v00 48-52~ 52-100v11"},
    {"far bits", {{{0, '0'}, {40, '1'}}, {{0, '0'}, {50, '1'}}}, "0-40v00 40-50v 50-100v11"},
    {"run", {{{0, '0'}, {20, '~'}, {80, '1'}}, {{0, '0'}, {50, '1'}}}, "0-20v00 20-80~ 80-100v11"},
    {"digits",
     {{{0, '3'}, {30, '2'}}, {{0, '1'}, {30, '2'}, {60, '0'}}},
     "0-30x1x 30-60z 60-100v0z"},
    {"last pixel", {{{0, '0'}, {97, '1'}}}, "0-970 97-100~"},
    {"change at the end", {{{0, '0'}, {100, '1'}}}, "0-1000 100-100~"},
    {"open run", {{{0, '0'}, {20, '~'}}}, "0-200 20-100~"},
    {"run before the window", {{{-50, '~'}, {20, '1'}}}, "<0-20~ 20-1001"},
    {"wave after the recording", {{{0, '0'}, {30, '1'}}}, "0-300 30-601", 60},
    {"no time at all", {{{-5, '1'}}}, "<0-01", 0},
};

TEST(PlotRow, isMadeOfTheScalarsChanges) {
    for (const RowCase& row : RowCases)
        EXPECT_EQ(drawn(row.scalars, row.end), row.drawn) << row.fault;
}

TEST(PlotAxis, hasRoundTimesInOneUnit) {
    const auto labels = [](long long from, long long to, std::optional<TimeUnit> unit) {
        std::string out;
        for (const AxisTick& tick : axisTicks(from, to, 4, unit))
            out += tick.label + "|";
        return out;
    };
    EXPECT_EQ(labels(0, 188'750, TimeUnit{-9, 1}), "0 us|50 us|100 us|150 us|");
    EXPECT_EQ(labels(123, 325, TimeUnit{-12, 100}), "20 ns|30 ns|");
    EXPECT_EQ(labels(1'000'007, 1'000'008, TimeUnit{-9, 1}), "1000.007 us|1000.008 us|");
    EXPECT_EQ(labels(7, 8, std::nullopt), "7|8|");
    EXPECT_EQ(labels(0, std::numeric_limits<long long>::max(), TimeUnit{-15, 10}), "0 s|50000 s|");
}

TEST(PlotSvg, isWellFormedWhateverNamesAndValuesHold) {
    const std::string hostile = "<&\"'>]]>\x01\x7F\xFF\xED\xA0\x80\xC0\xAF\xEF\xBF\xBF\xE2\x82";
    TemporaryDirectory directory;
    std::string parse =
        "python3 -c 'import sys, xml.dom.minidom as x; [*map(x.parse, sys.argv[1:])]'";
    WavePicture picture;
    picture.title = picture.caption = hostile;
    picture.width = 200;
    for (const RowKind kind : {RowKind::Bus, RowKind::Bit, RowKind::Event, RowKind::Bus}) {
        const std::string file = directory.file(std::to_string(picture.rows.size()));
        writeFile(file, svgDocument(picture));
        parse += " '" + file + "'";
        WaveRow row{kind, hostile, hostile, picture.rows.empty(), {}};
        for (int i = 0; i <= static_cast<int>(WaveKind::Dense); ++i)
            row.segments.push_back({i * 100.0, i * 100.0 + 100, WaveKind(i), i == 0, hostile});
        picture.rows.push_back(row);
    }
    EXPECT_EQ(std::system(parse.c_str()), 0);
}

}  // namespace
}  // namespace Korvel
