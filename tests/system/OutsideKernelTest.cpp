#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/StoredRecording.h"

namespace Korvel {
namespace {

// A simulator may also leave without a word, or unload the library first.
TEST(OutsideKernel, recordsThroughTheSlotsAlone) {
    const TemporaryDirectory directory;
    const auto recordedBy = [&](const std::string& ending) {
        const std::string path = directory.file(ending);
        const std::string command =
            std::string("'" OUTSIDE_KERNEL "' '" WAVEDATA_LIBRARY "' '") + path + "' " + ending;
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return withoutCreationTime(readFile(path));
    };
    const std::string closed = recordedBy("close");
    const StoredRecording recording = decode(closed);
    EXPECT_EQ(recording.application, "outside kernel");
    EXPECT_EQ(recording.latestTime, 1999);
    EXPECT_EQ(recording.numberOfAddresses, 32u);
    EXPECT_EQ(recording.strings, std::vector<std::string>{"from outside"});
    std::vector<RecordedEvent> expected;
    for (long long time = 0; time < 2000; ++time) {
        const auto low = static_cast<char>(time);
        expected.push_back({time, 16, std::string{low, 0}});
        expected.push_back({time, 8, std::string{low, 0, 0, 0, 2, 0, 0, 0}});
    }
    EXPECT_EQ(recording.allEvents(), expected);
    for (const char* ending : {"exit", "unload", "fork"})
        EXPECT_EQ(recordedBy(ending), closed) << ending;
}

}  // namespace
}  // namespace Korvel
