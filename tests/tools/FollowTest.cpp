// A simulation and its viewer, each a process of its own, as their users start and end them.

#include "korvel/IWdbWriter.h"
#include "korvel/WdbLiveSimulation.h"
#include "korvel/korvelApi.h"
#include "tests/support/Await.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace Korvel {
namespace {

using ::testing::HasSubstr;

// A child process, which does not outlive its owner.
class Process {
public:
    template <typename Body>
    explicit Process(Body&& body) : m_id(::fork()) {
        if (m_id != 0) return;
        body();
        ::_exit(0);
    }
    ~Process() {
        signal(SIGKILL);
        signal(SIGCONT);
        ::waitpid(m_id, nullptr, 0);
    }
    void signal(int number) const { ::kill(m_id, number); }

    // Exit status, 128 + signal, or -1 for one that does not end.
    int wait() const {
        siginfo_t ended = {};
        const bool hasEnded = becomesTrue([&] {
            ::waitid(P_PID, static_cast<id_t>(m_id), &ended, WEXITED | WNOHANG | WNOWAIT);
            return ended.si_pid != 0;
        });
        if (!hasEnded) return -1;
        return ended.si_code == CLD_EXITED ? ended.si_status : 128 + ended.si_status;
    }

private:
    pid_t m_id;
};

class Follow : public ::testing::Test {
protected:
    // A simulation that was killed leaves its ring to the next one in the directory.
    ~Follow() override {
        struct stat status = {};
        if (::stat(m_directory.file("torq.dir/lights").c_str(), &status) != 0) return;
        ::shm_unlink(("/" + std::to_string(status.st_dev) + std::to_string(status.st_ino)).c_str());
    }

    // Runs a command in the directory; output and errors go into NAME.out and NAME.err.
    Process start(const std::string& name, const std::string& command) {
        return Process([&] {
            if (::chdir(m_directory.file("").c_str()) != 0) ::_exit(126);
            const std::string line = "exec >" + name + ".out 2>" + name + ".err; exec " + command;
            ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        });
    }
    Process simulate(const std::string& arguments) {
        return start("simulator", "'" SIMULATOR "' torq.dir/lights " + arguments);
    }
    Process follow(const std::string& arguments, const std::string& name = "follow") {
        return start(name, "'" WDB_TOOL "' follow torq.dir/lights " + arguments);
    }
    int run(const std::string& arguments) {
        return start("run", "'" WDB_TOOL "' " + arguments).wait();
    }

    std::string contents(const std::string& name) { return readFile(m_directory.file(name)); }
    bool exists(const std::string& name) { return std::filesystem::exists(m_directory.file(name)); }
    std::string changesOf(const std::string& arguments) {
        EXPECT_EQ(run("changes " + arguments), 0) << contents("run.err");
        return contents("run.out");
    }
    bool isThere() {
        WdbLiveSimulation simulation(m_directory.file("torq.dir/lights/"));
        return simulation.getState() == WdbLiveSimulation::State::Free;
    }

    // A recording that a viewer left: closed, with just what was printed.
    void expectFinished(const std::string& recording, const std::string& printed) {
        EXPECT_EQ(run("verify " + recording), 0) << contents("run.out");
        EXPECT_THAT(contents("run.out"), HasSubstr(" 0 warnings"));
        EXPECT_TRUE(changesOf(recording + " 'top.*'") == printed);
    }

    TemporaryDirectory m_directory;
};

// A simulation that is first has more to say than the ring holds, so that it waits for its viewer.
TEST_F(Follow, showsWhatAStandAloneRecordingHolds) {
    for (const bool isViewerFirst : {true, false}) {
        SCOPED_TRACE(isViewerFirst);
        const std::string cycles = isViewerFirst ? "--cycles 2000 " : "--cycles 70000 ";
        ASSERT_EQ(simulate(cycles + "-o alone.wdb").wait(), 0) << contents("simulator.err");
        const std::string arguments =
            isViewerFirst ? "'top.*' --json" : "'top.*' -o lights.wdb --plot live.svg --every 0.01";
        const std::string live = cycles + "--live";
        const Process first = isViewerFirst ? follow(arguments) : simulate(live);
        ASSERT_TRUE(becomesTrue(
            [&] { return isViewerFirst ? !contents("follow.err").empty() : isThere(); }));
        const Process second = isViewerFirst ? simulate(live) : follow(arguments);
        ASSERT_EQ(first.wait(), 0) << contents("follow.err");
        ASSERT_EQ(second.wait(), 0) << contents("follow.err");
        const std::string error = contents("follow.err");
        EXPECT_EQ(error.find("waiting for a simulation in ") != error.npos, isViewerFirst);
        EXPECT_THAT(error, HasSubstr(isViewerFirst ? "wdb: lights.wdb: recorded up to 19995ns, "
                                                   : "wdb: lights.wdb: recorded up to 699995ns, "));
        const std::string form = isViewerFirst ? " 'top.*' --json" : " 'top.*'";
        const std::string expected = changesOf("alone.wdb" + form);
        EXPECT_TRUE(contents("follow.out") == expected);
        EXPECT_TRUE(changesOf("lights.wdb" + form) == expected);
    }
    // The last picture shows everything, as if drawn from the recording.
    ASSERT_EQ(run("plot lights.wdb 'top.*' -o after.svg"), 0);
    EXPECT_TRUE(contents("live.svg") == contents("after.svg"));
    EXPECT_FALSE(exists("live.svg.new"));
}

TEST_F(Follow, endsAtATimeAndLeavesOthersAlone) {
    ASSERT_EQ(simulate("--cycles 1000 -o alone.wdb").wait(), 0);
    const Process simulator = simulate("--live --cycles 1000000000");
    ASSERT_EQ(follow("--until 5.003us top.light top.clk").wait(), 0) << contents("follow.err");
    EXPECT_EQ(contents("follow.out"), changesOf("alone.wdb --to 5.003us top.light top.clk"));
    EXPECT_EQ(run("verify lights.wdb"), 0) << contents("run.out");
    struct Case {
        const char* arguments;
        int status;
        const char* error;  // a part of its last line
    };
    const Case cases[] = {
        {"top.clk", 1, "wdb: lights.wdb: exists; -o gives"},
        {"-o o.wdb top.clock", 1,
         "torq.dbg: no object is called 'top.clock'; did you mean top.clk"},
        {"-o o.wdb --until 5h", 1, "'5h' is no time"},
        {"-o o.wdb --until -1ns", 1, "'-1ns' is negative"},
        {"-o missing/o.wdb", 1, "wdb: missing/o.wdb: "},
        {"-o torq.dir/lights/torq.dbg", 1, "is the simulation's own file"},
        {"-o o.wdb --plot ./o.wdb top.clk", 1, "o.wdb: is the picture as well"},
        {"-o o.wdb --plot o.svg", 2, "OBJECT"},
        {"-o o.wdb --plot missing/o.svg top.clk", 1, "missing/o.svg.new: cannot create: No such"},
        {"-o o.wdb --every 0", 2, "--every"},
        {"-o o.wdb top.clk >/dev/full", 1, "standard output: cannot write"},
    };
    for (const Case& row : cases) {
        EXPECT_EQ(follow(row.arguments).wait(), row.status) << row.arguments;
        EXPECT_THAT(contents("follow.err"), HasSubstr(row.error)) << row.arguments;
    }
}

// The viewer is told to end while the simulation stands still, so that no mark wakes it.
TEST_F(Follow, mayEndAndComeAgainAndHasNoSecond) {
    const Process simulator = simulate("--live --cycles 1000000000 --cycles-per-second 2000");
    const auto hasPrinted = [&](const std::string& name) {
        return becomesTrue([&] { return contents(name + ".out").size() > 10'000; });
    };
    {
        const Process viewer = follow("'top.*'", "first");
        ASSERT_TRUE(hasPrinted("first")) << contents("first.err");
        EXPECT_EQ(follow("-o other.wdb").wait(), 1);
        EXPECT_THAT(contents("follow.err"), HasSubstr("has its viewer already"));
        EXPECT_FALSE(exists("other.wdb"));
        simulator.signal(SIGSTOP);
        viewer.signal(SIGINT);
        EXPECT_EQ(viewer.wait(), 130);
        EXPECT_THAT(contents("first.err"), HasSubstr(" changes printed: interrupted\n"));
        expectFinished("lights.wdb", contents("first.out"));
    }
    simulator.signal(SIGCONT);
    const Process viewer = follow("'top.*' -o again.wdb", "second");
    ASSERT_TRUE(hasPrinted("second")) << contents("second.err");
    simulator.signal(SIGKILL);
    EXPECT_EQ(viewer.wait(), 0);
    EXPECT_THAT(contents("second.err"), HasSubstr("the simulation has ended\n"));
    expectFinished("again.wdb", contents("second.out"));
}

// A kernel may come back to a time that it has marked. When it starts again it keeps its ring.
// Without a description, bytes are known by address.
TEST_F(Follow, showsLateChangesAndEndsWhereTimeBeginsAgain) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const Process kernel([&] {
        std::filesystem::create_directories(m_directory.file("torq.dir/lights"));
        auto* const writer = static_cast<IWdbWriter*>(korvelApi_getWdbWriter());
        writer->open(IWdbWriter::LiveMode, m_directory.file("torq.dir/lights/"), "", 0);
        char told = 0;
        for (unsigned char value = 7; value < 9; ++value) {
            writer->getTraceVhdlFunc()(100, 0, 1, nullptr, &value);
            writer->markCurrentTime(100);
            if (::read(ends[0], &told, 1) != 1) return;
        }
        writer->restart();
        writer->markCurrentTime(5);
        ::pause();
    });
    const Process viewer = follow("@0");
    std::string expected;
    for (const std::string line : {"           100  @0  07\n", "           100  @0  08\n"}) {
        expected += line;
        ASSERT_TRUE(becomesTrue([&] { return contents("follow.out") == expected; }));
        ASSERT_EQ(::write(ends[1], "", 1), 1);
    }
    EXPECT_EQ(viewer.wait(), 0);
    EXPECT_EQ(contents("follow.out"), expected);
    EXPECT_THAT(contents("follow.err"), HasSubstr("torq.dbg: objects have no names"));
    EXPECT_THAT(contents("follow.err"), HasSubstr("up to 100, 2 changes printed: the simulation "
                                                  "has begun again"));
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
}  // namespace Korvel
