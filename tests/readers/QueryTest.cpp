#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "indexes/WdbGapBTree.h"
#include "readers/WdbStaticReader.h"

namespace Korvel {
namespace {

using Records = std::map<long long, unsigned char>;  // by time

std::string textOf(const WdbTimeByteValues& snapshot) {
    std::string text = std::to_string(snapshot.time) + ":";
    for (const WdbByteValue& entry : snapshot.values) {
        text += entry.type == WdbByteValue::NoValue      ? '-'
                : entry.type == WdbByteValue::DenseValue ? '~'
                                                         : static_cast<char>(entry.value);
    }
    return text;
}

// Trees by what they hold: one string a tree, "5a 9b" for value a at 5 and b at 9.
class Trees {
public:
    explicit Trees(const std::vector<Records>& contents) {
        m_trees.reserve(contents.size());
        for (const Records& records : contents) {
            m_trees.emplace_back(0);
            for (const auto& [time, value] : records)
                m_trees.back().records().add(time, value);
            list.push_back(&m_trees.back());
        }
    }
    std::string range(long long start, long long end, long long resolution = 0) const {
        std::vector<WdbTimeByteValues> out(1);  // what is there stays
        reader.getValueEvents(start, end, resolution, list, out);
        std::string text;
        for (std::size_t i = 1; i < out.size(); ++i)
            text += (i > 1 ? " " : "") + textOf(out[i]);
        return text;
    }
    std::string at(long long time) const {
        WdbTimeByteValues out{99, {{WdbByteValue::DenseValue, 1}}};
        reader.getValueEvent(time, list, out);
        return textOf(out);
    }

private:
    std::vector<WdbScalarBTree> m_trees;

public:
    std::vector<WdbScalarBTree*> list;
    WdbStaticReader reader;
};

struct QueryCase {
    const char* name;
    std::vector<Records> trees;
    long long time;
    std::string value;
    long long previous;
    long long next;
};

const QueryCase QueryCases[] = {
    {"noTrees", {}, 5, "0:", 0, 0},
    {"onlyEmptyTrees", {{}, {}}, 5, "0:--", 0, 0},
    {"beforeEveryChange", {{{7, 'a'}}, {{9, 'b'}}}, 5, "0:--", 9, 7},
    {"valueOfTheLatestChangeOfAll", {{{2, 'a'}}, {{4, 'b'}}, {}}, 5, "4:ab-", 4, 2},
    {"atTheTimeOfAChange", {{{2, 'a'}, {5, 'b'}, {8, 'c'}}}, 5, "5:b", 2, 8},
    {"theNearestLaterChangeOfAnyTree", {{{9, 'a'}}, {{7, 'b'}}, {{8, 'c'}}}, 5, "0:---", 9, 7},
    {"theFirstTreeDecidesWhereItHasNone", {{{3, 'a'}}, {{7, 'b'}}}, 5, "3:a-", 7, 3},
    {"theFirstTreeThatIsNotEmptyDecides", {{}, {{3, 'a'}}, {{7, 'b'}}}, 5, "3:-a-", 7, 3},
    {"aLaterTreeWithoutOneIsPassedOver", {{{7, 'a'}}, {{3, 'b'}}}, 5, "3:-b", 7, 7},
    {"timeZeroProbesItself", {{{0, 'a'}, {4, 'b'}}}, 0, "0:a", 0, 4},
};

TEST(Queries, answerPointQueriesWithTheirOddities) {
    for (const QueryCase& row : QueryCases) {
        const Trees trees(row.trees);
        EXPECT_EQ(trees.at(row.time), row.value) << row.name;
        EXPECT_EQ(trees.reader.getPreviousEvent(row.time, trees.list), row.previous) << row.name;
        EXPECT_EQ(trees.reader.getNextEvent(row.time, trees.list), row.next) << row.name;
    }
}

struct RangeCase {
    const char* name;
    std::vector<Records> trees;
    long long start;
    long long end;
    long long resolution;
    std::string snapshots;
};

const RangeCase RangeCases[] = {
    {"nothingUpToTheEnd", {{{9, 'a'}}}, 2, 8, 0, ""},
    {"startAfterEnd", {{{1, 'a'}, {5, 'b'}}}, 4, 2, 0, "1:a"},
    {"beginsWithWhatIsInEffect", {{{1, 'a'}}, {{3, 'b'}}}, 5, 9, 0, "3:ab"},
    {"showsAFirstLaterChangeAtOnce", {{{1, 'a'}}, {{7, 'b'}}}, 5, 9, 0, "7:ab"},
    {"anEmptyTreeKeepsItsPlace", {{}, {{5, 'a'}, {6, 'b'}}}, 5, 9, 0, "5:-a 6:-b"},
    {"changesOfOneTime", {{{1, 'a'}, {6, 'b'}}, {{2, 'c'}, {6, 'd'}}}, 5, 6, 0, "2:ac 6:bd"},
    {"noEnd", {{{1, 'a'}, {6, 'b'}}}, 2, WdbScalarBTree::NoEndTime, 0, "1:a 6:b"},
    {"denseToDense",
     {{{1, 'a'}, {2, 'b'}}, {{1, 'a'}, {9, 'b'}, {10, 'a'}, {20, 'b'}}},
     0,
     30,
     5,
     "1:~a 2:ba 9:b~ 10:ba 20:bb"},
    {"negativeResolutionShowsAll", {{{1, 'a'}, {2, 'b'}}}, 0, 30, -7, "1:a 2:b"},
};

TEST(Queries, showWhatChangesInARange) {
    for (const RangeCase& row : RangeCases) {
        EXPECT_EQ(Trees(row.trees).range(row.start, row.end, row.resolution), row.snapshots)
            << row.name;
    }
}

// Every record of a few hundred, seen from random windows: what a redraw shows is what a look at
// each time would.
TEST(Queries, showInARangeWhatALookAtEachTimeShows) {
    for (unsigned int seed = 0; seed < 30; ++seed) {
        std::mt19937 random(seed);
        std::vector<Records> contents(1 + random() % 5);
        for (Records& records : contents) {
            for (auto count = random() % 60; count > 0; --count)
                records[1 + random() % 200] = static_cast<unsigned char>('a' + random() % 3);
        }
        const Trees trees(contents);
        for (int query = 0; query < 20; ++query) {
            const long long start = random() % 220;
            const long long end = start + random() % 100;
            std::vector<WdbTimeByteValues> out;
            trees.reader.getValueEvents(start, end, 0, trees.list, out);
            for (std::size_t i = 2; i < out.size(); ++i)
                ASSERT_LT(out[i - 1].time, out[i].time);
            // The first snapshot may show first changes that come later, and have the time of the
            // latest of them; from then on all is exact.
            for (long long time = out.empty() ? end + 1 : out.front().time; time <= end; ++time) {
                const auto shown = std::find_if(
                    out.rbegin(), out.rend(), [&](const auto& some) { return some.time <= time; });
                WdbTimeByteValues expected;
                trees.reader.getValueEvent(time, trees.list, expected);
                std::string got = textOf(*shown);
                ASSERT_EQ(got.substr(got.find(':')),
                          textOf(expected).substr(textOf(expected).find(':')))
                    << "seed " << seed << ", " << start << ".." << end << " at " << time;
            }
        }
    }
}

}  // namespace
}  // namespace Korvel
