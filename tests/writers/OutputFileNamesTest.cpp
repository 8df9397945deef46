#include "support/OutputFileNames.h"

#include <gtest/gtest.h>

namespace TORQ {
namespace {

TEST(OutputFileNames, waveformFilesGetExtensionAndNumber) {
    const struct {
        const char* name;
        unsigned int index;
        const char* expected;
    } cases[] = {
        {"", 0, "torq.wdb"},           {"", 3, "torq3.wdb"},
        {"wave", 0, "wave.wdb"},       {"wave.wdb", 0, "wave.wdb"},
        {"wdb", 0, "wdb.wdb"},         {"x.wdb", 12, "x12.wdb"},
        {".wdb", 7, "7.wdb"},          {"a.vcd", 1, "a.vcd1.wdb"},
        {"a.wdb/b", 0, "a.wdb/b.wdb"}, {"x.WDB", 4294967295, "x.WDB4294967295.wdb"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(OutputFileNames::getWdbFileName(row.name, row.index), row.expected) << row.name;
    }
}

// Simulator and viewer each find the directory by themselves; where they disagree they never meet.
TEST(OutputFileNames, kernelDirectoryFollowsFromTheDesignPath) {
    const struct {
        const char* location;
        const char* designPath;
        const char* expected;
    } cases[] = {
        {"", "/w/torq.dir/snap/sim", "/w/torq.dir/snap"},
        {"", "/w/torq.dir/snap/", "/w/torq.dir/snap"},
        {"", "/w/snap/sim", "/w/torq.dir/snap"},
        {"", "snap/sim", "torq.dir/snap"},
        {"", "snap", "torq.dir/snap"},
        // Only a whole component of that name is the output directory.
        {"", "/w/mytorq.dir/snap/sim", "/w/mytorq.dir/torq.dir/snap"},
        {"out", "/w/snap/sim", "/w/out/torq.dir/snap"},
        {"out", "/w/torq.dir/snap/sim", "/w/out/torq.dir/snap"},
        {"out/torq.dir", "/w/snap/sim", "/w/out/torq.dir/snap"},
        {"/out/torq.dir", "/w/snap/sim", "/out/torq.dir/snap"},
    };
    for (const auto& row : cases) {
        OutputFileNames::torqdir_location = row.location;
        EXPECT_EQ(OutputFileNames::getKernelDirectory(row.designPath), row.expected)
            << row.designPath << " at " << row.location;
    }
    OutputFileNames::torqdir_location.clear();
}

TEST(OutputFileNames, snapshotIsTheLastComponentOfTheDirectoryPart) {
    EXPECT_EQ(OutputFileNames::getSnapshotName("/w/snap/sim"), "snap");
    EXPECT_EQ(OutputFileNames::getSnapshotName("/w/snap/"), "snap");
    EXPECT_EQ(OutputFileNames::getSnapshotName("snap"), "snap");
    EXPECT_EQ(OutputFileNames::getKernelExecDirName("", "snap"), "torq.dir/snap");
    EXPECT_EQ(OutputFileNames::getKernelExecDirName("base", "snap"), "base/torq.dir/snap");
}

}  // namespace
}  // namespace TORQ
