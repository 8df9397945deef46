#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/RecordingFile.h"

namespace Korvel {
namespace {

// A program that knows the public headers and the library only draws a recording.
TEST(ViewerExample, drawsARecording) {
    RecordingFile file(64);
    const auto pair = [](unsigned char value, unsigned char plane) {
        return std::string{static_cast<char>(value), 0, 0, 0, static_cast<char>(plane), 0, 0, 0};
    };
    file.write(0, 8, pair(1, 1));
    file.write(100, 8, pair(0, 0));
    for (int i = 0; i < 20; ++i)
        file.write(200 + i, 8, pair(static_cast<unsigned char>(i % 2), 0));
    file.write(400, 8, pair(0, 1));
    file.write(500, 3, "\x0b");
    file.writer().markCurrentTime(719);
    file.close();
    // What it prints, both ways, and its exit status.
    const auto outputOf = [&](const std::string& arguments) {
        const std::string output = file.path + ".out";
        const std::string command = "'" VIEWER_EXAMPLE "' " + arguments + " >" + output + " 2>&1";
        const int status = std::system(command.c_str());
        return readFile(output) + "status " + std::to_string(status / 256);
    };
    EXPECT_EQ(outputOf("'" + file.path + "' 8.0 3 9"),
              "         8.0 xxxxxxxxxx__________##~~~~~~~~~~~~~~~~~~"
              "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz\n"
              "           3 " +
                  std::string(50, ' ') + std::string(22, 'b') + "\n           9 " +
                  std::string(10, '0') + std::string(62, '0') +
                  "\n             0, one column 10, latest time 719\nstatus 0");
    EXPECT_EQ(outputOf("/no/such.wdb 1").substr(0, 14), "/no/such.wdb: ");
}

}  // namespace
}  // namespace Korvel
