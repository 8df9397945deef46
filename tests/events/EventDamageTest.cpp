#include <climits>

#include <gtest/gtest.h>

#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"

namespace Korvel {
namespace {

// Files whose bytes claim what is not so: opening says so or gives what can be read, and ends.
class EventDamage : public ::testing::TestWithParam<int> {
protected:
    // Two blocks of four long events each.
    EventDamage() {
        for (int i = 0; i < 8; ++i)
            file.write(10 + i, 0, std::string(2040, static_cast<char>('a' + i)));
        file.close();
        good = readFile(file.path);
    }

    // The first letters of the events found, or the exception's text.
    std::string foundWith(long long offset, long long value) {
        writeFile(file.path, good);
        damage(file.path, static_cast<std::size_t>(offset), value);
        std::string found;
        const std::string failure = openFailureOf([&] {
            file.open();
            for (const StoredEvent& event : file.stored())
                found += event.values.substr(0, 1);
        });
        return failure + found;
    }
    long long node() const { return fieldAt<long long>(good, EventFile::Table); }

    EventFile file{GetParam(), 5000};
    std::string good;
};
INSTANTIATE_TEST_SUITE_P(Types, EventDamage, ::testing::Values(SingleBucket, MultipleBucket),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

TEST_P(EventDamage, refusesAHeaderThatTheFileCannotHold) {
    const struct {
        const char* name;
        long long offset, value;
    } rows[] = {
        {"manyBuckets", 8, GetParam() | 0x7FFFFFFFll << 32},
        {"noAddressesPerBucket", 16, 0},
        {"addressesPerBucketHuge", 16, LLONG_MIN},
        {"addressesHuge", 24, -1},
        {"tableBeyondTheEnd", 32, 1ll << 40},
        {"tableInTheHeader", 32, 8},
        {"tableNegative", 32, -200},
        {"blocksWithoutRoom", 64, 20},
        {"blocksHuge", 64, 0x7FFFFFFF},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(foundWith(file.header() + row.offset, row.value),
                  "Tarn|wavedata/bridge/kernel/src/WdbEventSection|The event section's header is "
                  "damaged.")
            << row.name;
    }
    if (GetParam() == SingleBucket) {
        EXPECT_NE(foundWith(file.header() + 8, SingleBucket), "") << "no slot for its one list";
    }
    EXPECT_EQ(foundWith(file.header(), 0), "abcdefgh") << "the latest time is no claim";
    EXPECT_EQ(openFailureOf([&] { file.database->initialize(1ll << 40, false); }),
              "Tarn|wavedata/bridge/kernel/src/WdbEventSection|The event section's header lies "
              "outside the file.");
}

TEST_P(EventDamage, findsTheBlocksThatAreSound) {
    const long long handles = node() + 8;
    const long long sizes = node() + 8 + 800;
    const struct {
        const char* name;
        long long offset, value;  // eight bytes
        const char* found;
    } rows[] = {
        {"slotBeyondTheEnd", EventFile::Table, LLONG_MAX, ""},
        {"firstBlockBeyondTheEnd", handles, LLONG_MAX - 10, "efgh"},
        {"firstBlockElsewhere", handles, file.header(), "efgh"},
        {"bothSizesHuge", sizes, -1, ""},
        {"firstSizeCut", sizes,
         20 | (fieldAt<long long>(good, static_cast<std::size_t>(sizes)) >> 32 << 32), "efgh"},
        {"countHuge", node() + 1208, 0xFFFFFFFF, "abcdefgh"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(foundWith(row.offset, row.value), row.found) << row.name;
}

}  // namespace
}  // namespace Korvel
