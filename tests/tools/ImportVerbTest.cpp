// The tool as its user meets it: exit status, what it prints, and what it leaves behind.

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/StoredRecording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace Korvel {
namespace {

using ::testing::HasSubstr;

const std::string Dump =
    "$timescale 1ns $end $var wire 1 ! clk $end $enddefinitions $end\n#0\n0!\n#5\n1!\n";

class ImportVerb : public ::testing::Test {
protected:
    ImportVerb() {
        writeFile(m_directory.file("good.vcd"), Dump);
        writeFile(m_directory.file("cut.vcd"), Dump + "#10\n0");
        writeFile(m_directory.file("text.txt"), "no dump\n");
        std::filesystem::create_directory(m_directory.file("folder"));
        std::filesystem::create_directory(m_directory.file("temporary"));
    }

    // Runs the tool in the directory; output and errors end up in files there.
    int run(const std::string& arguments) {
        const std::string command = "cd '" + m_directory.file("") + "' && TMPDIR=temporary '" +
                                    WDB_TOOL + "' " + arguments + " >out.txt 2>err.txt";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string contents(const std::string& name) { return readFile(m_directory.file(name)); }

    TemporaryDirectory m_directory;
};

struct VerbCase {
    const char* arguments;
    int status;
    const char* output;  // a part of it
    const char* error;   // all of its one line but for what follows; "" = nothing at all
};

const VerbCase VerbCases[] = {
    {"import good.vcd o.wdb", 0, "1 objects in 0 scopes, 2 value changes up to 5 x 1ns", ""},
    {"import - o.wdb <good.vcd", 0, "2 value changes", ""},
    {"import /dev/stdin o.wdb <good.vcd", 0, "2 value changes", ""},
    {"import --json good.vcd o.wdb", 0, "\"changes\": 2", ""},
    {"import -q good.vcd o.wdb", 0, "", ""},
    {"import cut.vcd o.wdb", 1, "2 value changes", "wdb: cut.vcd: line 7: the dump ends within"},
    {"import text.txt o.wdb", 1, "", "wdb: text.txt: line 1: is no value-change dump"},
    {"import missing.vcd o.wdb", 1, "", "wdb: missing.vcd: cannot open: No such file"},
    {"import folder o.wdb", 1, "", "wdb: folder: is a directory"},
    {"import good.vcd missing/o.wdb", 1, "", "wdb: missing/o.wdb: "},
    {"import good.vcd folder", 1, "", "wdb: folder: "},
    {"import good.vcd /dev/full 2>&1 | cat", 0, "WDB FATAL ERROR: ", ""},
    {"import good.vcd ./good.vcd", 1, "", "wdb: ./good.vcd: is the dump itself"},
    {"import good.vcd", 2, "", nullptr},
    {"import --nonsense good.vcd o.wdb", 2, "", nullptr},
    {"import --help", 0, "IN.vcd", ""},
};

TEST_F(ImportVerb, tellsByStatusAndOneLine) {
    for (const VerbCase& row : VerbCases) {
        EXPECT_EQ(run(row.arguments), row.status) << row.arguments;
        EXPECT_THAT(contents("out.txt"), HasSubstr(row.output)) << row.arguments;
        if (row.error == nullptr) continue;
        const std::string error = contents("err.txt");
        EXPECT_EQ(error.rfind(row.error, 0), 0U) << row.arguments << ": " << error;
        EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), *row.error == 0 ? 0 : 1) << error;
        EXPECT_TRUE(std::filesystem::is_empty(m_directory.file("temporary"))) << row.arguments;
    }
    EXPECT_EQ(contents("good.vcd"), Dump);
}

TEST_F(ImportVerb, sameDumpGivesSameBytes) {
    ASSERT_EQ(run("import good.vcd a.wdb"), 0);
    ASSERT_EQ(run("import - b.wdb <good.vcd"), 0);
    EXPECT_EQ(withoutCreationTime(contents("a.wdb")), withoutCreationTime(contents("b.wdb")));
}

// A pipe holds less than what is written before the signal is sent, so the tool has certainly begun
// to read by then, and waits for more.
TEST_F(ImportVerb, interruptedPipeLeavesWhatWasRead) {
    constexpr int Changes = 200000;
    std::string dump = Dump;
    for (int i = 0; i < Changes; ++i)
        dump += '#' + std::to_string(10 + i) + "\n0!\n";
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string output = m_directory.file("o.wdb");
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
