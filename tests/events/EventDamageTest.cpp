#include <climits>

#include <gtest/gtest.h>

#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"

namespace Korvel {
namespace {

class EventDamage : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Types, EventDamage,
                         ::testing::Values(SingleBucket, MultipleBucket, MultipleBtree),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

TEST_P(EventDamage, refusesAHeaderThatTheFileCannotHold) {
    const struct {
        const char* name;
        std::size_t offset;
        long long value;
    } rows[] = {
        {"manyBuckets", 8, GetParam() | 0x7FFFFFFFll << 32},
        {"noAddressesPerBucket", 16, 0},
        {"addressesPerBucketHuge", 16, LLONG_MIN},
        {"addressesHuge", 24, -1},
        {"tableBeyondTheEnd", 32, 1ll << 40},
        {"blocksWithoutRoom", 64, 20},
        {"blocksHuge", 64, 0x7FFFFFFF},
    };
    EventFile file{GetParam(), 5000};
    const auto header = static_cast<std::size_t>(file.header());
    const auto refusal = [&] { return openFailureOf([&] { file.open(); }); };
    file.close();
    const std::string good = readFile(file.path);
    for (const auto& row : rows) {
        writeFile(file.path, good);
        damage(file.path, header + row.offset, row.value);
        EXPECT_EQ(refusal(),
                  "Tarn|wavedata/bridge/kernel/src/WdbEventSection|The event section's header is "
                  "damaged.")
            << row.name;
    }
    writeFile(file.path, good);
    damage(file.path, header + 8, static_cast<long long>(SingleBucket));
    EXPECT_NE(refusal(), "") << "another type, or no slot for its one list";
    EXPECT_EQ(openFailureOf([&] { file.database->initialize(1ll << 40, false); }),
              "Tarn|wavedata/bridge/kernel/src/WdbEventSection|The event section's header lies "
              "outside the file.");
}

}  // namespace
}  // namespace Korvel
