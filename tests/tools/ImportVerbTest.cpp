// What an import leaves behind.

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/StoredRecording.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace Korvel {
namespace {

const std::string Dump =
    "$timescale 1ns $end $var wire 1 ! clk $end $enddefinitions $end\n#0\n0!\n#5\n1!\n";

TEST(ImportVerb, sameDumpGivesSameBytes) {
    const TemporaryDirectory directory;
    writeFile(directory.file("in.vcd"), Dump);
    const std::string command = "cd '" + directory.file("") +
                                "' && '" WDB_TOOL "' import -q in.vcd a.wdb && '" WDB_TOOL
                                "' import -q - b.wdb <in.vcd";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(withoutCreationTime(readFile(directory.file("a.wdb"))),
              withoutCreationTime(readFile(directory.file("b.wdb"))));
}

// A pipe holds less than what is written before the signal is sent, so the tool has certainly begun
// to read by then, and waits for more.
TEST(ImportVerb, interruptedPipeLeavesWhatWasRead) {
    constexpr int Changes = 200000;
    std::string dump = Dump;
    for (int i = 0; i < Changes; ++i)
        dump += '#' + std::to_string(10 + i) + "\n0!\n";
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const TemporaryDirectory directory;
    const std::string output = directory.file("o.wdb");
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[0], STDIN_FILENO);
        close(ends[1]);
        execl(WDB_TOOL, WDB_TOOL, "import", "-q", "-", output.c_str(), nullptr);
        _exit(127);
    }
    close(ends[0]);
    ASSERT_EQ(write(ends[1], dump.data(), dump.size()), static_cast<ssize_t>(dump.size()));
    kill(child, SIGINT);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    close(ends[1]);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    const StoredRecording recording = decode(readFile(output));
    EXPECT_GT(recording.allEvents().size(), 100U);
    EXPECT_GE(recording.latestTime, recording.allEvents().back().time);
}

}  // namespace
}  // namespace Korvel
