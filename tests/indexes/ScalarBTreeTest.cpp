#include "korvel/WdbScalarBTree.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <ostream>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "indexes/WdbGapBTree.h"
#include "indexes/WdbIndexPages.h"
#include "tests/support/TemporaryDirectory.h"

namespace Korvel {

bool operator==(const WdbTimeByteValue& one, const WdbTimeByteValue& other) {
    return one.time == other.time && one.type == other.type && one.value == other.value;
}
std::ostream& operator<<(std::ostream& out, const WdbTimeByteValue& record) {
    return out << record.time << (record.type == WdbByteValue::DenseValue ? "~" : "=")
               << unsigned{record.value};
}

namespace {

using Records = std::vector<WdbTimeByteValue>;
constexpr long long Forever = std::numeric_limits<long long>::max();

WdbTimeByteValue single(long long time, unsigned char value) {
    return {time, WdbByteValue::SingleValue, value};
}

// What a tree is to hold, and what a query is to show, by definition and without any structure.
class Model {
public:
    void add(long long time, unsigned char value) {
        if (time < m_newest) return;
        if (!m_records.empty() && m_records.back().time == time) m_records.pop_back();
        if (!m_records.empty() && m_records.back().value == value) return;
        m_records.push_back(single(time, value));
        m_newest = time;
    }

    Records find(long long time, unsigned long long resolution, long long end) const {
        Records shown;
        const std::size_t count = m_records.size();
        const auto isInEffect = [&](std::size_t i) {
            return m_records[i].time <= time && (i + 1 == count || m_records[i + 1].time > time);
        };
        std::size_t i = 0;
        while (i < count && m_records[0].time <= time && !isInEffect(i))
            ++i;
        while (i < count && m_records[i].time <= end) {
            std::size_t last = i;
            while (last + 1 < count && m_records[last + 1].time <= end &&
                   gapAfter(last) < resolution)
                ++last;
            if (last != i) shown.push_back({m_records[i].time, WdbByteValue::DenseValue, 0});
            shown.push_back(m_records[last]);
            i = last + 1;
        }
        return shown;
    }

    const Records& records() const { return m_records; }

private:
    unsigned long long gapAfter(std::size_t i) const {
        return static_cast<unsigned long long>(m_records[i + 1].time - m_records[i].time);
    }

    Records m_records;
    long long m_newest = std::numeric_limits<long long>::min();
};

Records shownBy(const WdbScalarBTree& tree, long long time, long long resolution, long long latest,
                long long end) {
    Records shown;
    const std::unique_ptr<WdbScalarBTree::Iterator> it(tree.find(time, resolution, latest, end));
    for (; *it; ++*it)
        shown.push_back(**it);
    EXPECT_EQ(it->getTime(), 0);
    EXPECT_EQ((**it).type, WdbByteValue::NoValue);
    return shown;
}

// Small pages make nodes of two children, so that a few thousand records cross every kind of border
// between leaves, nodes and the unfinished right edge. Steps mix bursts with pauses of every size,
// beyond 32 bits too, repeated times, equal values and times that fall.
TEST(ScalarBTree, showsWhatASimpleModelShows) {
    const TemporaryDirectory directory;
    for (unsigned int seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        const auto below = [&](unsigned long long limit) { return random() % limit; };
        const std::size_t pageSize = seed % 3 == 0 ? 56 : 64 + 8 * below(100);
        const auto pages = seed % 2 == 0 ? std::make_shared<WdbIndexPages>(pageSize)
                                         : std::make_shared<WdbIndexPages>(
                                               directory.file(std::to_string(seed)), pageSize);
        WdbScalarBTree tree(7, WdbScalarBTree::WholeByte, pages);
        Model model;
        const unsigned int longest = seed % 5 == 0 ? 40 : 10;  // bits of a pause
        long long time = static_cast<long long>(below(100)) - 50;
        for (int round = 0; round < 8; ++round) {
            for (auto count = below(round == 0 ? 4 : 600); count > 0; --count) {
                const unsigned long long kind = below(20);
                if (kind == 0) {
                    time += static_cast<long long>(below(1ull << (1 + below(longest))));
                } else if (kind < 16) {
                    time += static_cast<long long>(below(4));
                }
                const long long at = kind == 19 ? time - static_cast<long long>(below(9)) : time;
                const auto value = static_cast<unsigned char>(below(3));
                tree.records().add(at, value);
                model.add(at, value);
            }
            const Records& all = model.records();
            ASSERT_EQ(tree.getRecordCount(), all.size());
            ASSERT_EQ(tree.isEmpty(), all.empty());
            ASSERT_EQ(tree.getLastValueTime(), all.empty() ? 0 : all.back().time);
            const auto anyTime = [&] {
                const long long near = all.empty() ? 0 : all[below(all.size())].time;
                return near + static_cast<long long>(below(5)) - 2;
            };
            for (int query = 0; query < 60; ++query) {
                const long long from = anyTime();
                const auto resolution = static_cast<long long>(below(1ull << below(longest + 2)));
                const long long latest =
                    query % 4 == 0 ? 0 : time + static_cast<long long>(below(9));
                const long long end = query % 3 == 0 ? WdbScalarBTree::NoEndTime : anyTime();
                ASSERT_THAT(shownBy(tree, from, resolution, latest, end),
                            testing::ElementsAreArray(
                                model.find(from, static_cast<unsigned long long>(resolution),
                                           end == WdbScalarBTree::NoEndTime ? Forever : end)))
                    << "from " << from << " resolution " << resolution << " latest " << latest
                    << " end " << end;
            }
        }
    }
}

// The extremes of time are where a gap no longer fits a signed number.
TEST(ScalarBTree, countsGapsOverAllOfTime) {
    constexpr long long First = std::numeric_limits<long long>::min();
    WdbScalarBTree tree(0);
    for (const long long time : {First, First + 1, 0LL, Forever - 1, Forever})
        tree.records().add(time, static_cast<unsigned char>(time & 1));
    const Records expected{{First, WdbByteValue::DenseValue, 0},
                           single(First + 1, 1),
                           single(0, 0),
                           single(Forever, 1)};
    EXPECT_THAT(shownBy(tree, First, 2, Forever, WdbScalarBTree::NoEndTime),
                testing::ElementsAreArray(expected));
    EXPECT_THAT(shownBy(tree, First, -5, Forever, First), testing::ElementsAre(single(First, 0)));
}

}  // namespace
}  // namespace Korvel
