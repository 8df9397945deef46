#include "writers/WdbLiveWriter.h"

#include <gtest/gtest.h>

#include "veld/OpenException.h"

namespace Korvel {
namespace {

TEST(LiveWriter, endsTheProcessUnlessTheModeIsLive) {
    for (const int mode : {0, 2}) {
        EXPECT_EXIT(WdbLiveWriter().open(static_cast<IWdbWriter::WriterMode>(mode), "d", "f", 0),
                    ::testing::ExitedWithCode(1), "^$");
    }
    EXPECT_THROW(WdbLiveWriter().open(IWdbWriter::LiveMode, "d", "f", 0), Veld::OpenException);
}

// A kernel calls them also where no viewer is there.
TEST(LiveWriter, dropsWhatIsTracedWithoutTransport) {
    WdbLiveWriter writer;
    ::testing::internal::CaptureStdout();
    writer.getTraceVhdlFunc()(1, 0, 1, nullptr, nullptr);
    writer.getTraceVlogFunc()(1, 0, 0, nullptr, nullptr, 0, 1);
    writer.getTraceScObjectFunc()(1, 0, nullptr, nullptr, 0, 1);
    writer.getTraceScVirtualObjectFunc()(1, 0, nullptr, 0, 1);
    EXPECT_EQ(writer.addString("text"), 0);
    writer.getTraceVhdlFuncScalar()(1, 0, 1, nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "trace vhdl scalar called\n");
}

}  // namespace
}  // namespace Korvel
