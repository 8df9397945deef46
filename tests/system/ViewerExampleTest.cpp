#include <array>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/RecordingFile.h"

namespace Korvel {
namespace {

// What a program prints, both ways, and its exit status.
std::string outputOf(const std::string& command) {
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::string output;
    std::array<char, 256> part{};
    while (std::fgets(part.data(), part.size(), pipe) != nullptr)
        output += part.data();
    return output + "status " + std::to_string(::pclose(pipe) / 256);
}

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
    const std::string viewer = "'" VIEWER_EXAMPLE "' '" + file.path + "' ";
    EXPECT_EQ(outputOf(viewer + "8.0 3 9"),
              "         8.0 xxxxxxxxxx__________##~~~~~~~~~~~~~~~~~~"
              "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz\n"
              "           3 " +
                  std::string(50, ' ') + std::string(22, 'b') + "\n           9 " +
                  std::string(10, '0') + std::string(62, '0') +
                  "\n             0, one column 10, latest time 719\nstatus 0");
    EXPECT_EQ(outputOf("'" VIEWER_EXAMPLE "' /no/such.wdb 1").substr(0, 14), "/no/such.wdb: ");
}

}  // namespace
}  // namespace Korvel
