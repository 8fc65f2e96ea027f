// Console progress lines: the exact text a command-line user sees.

#include "libcommon/core/progresscallbacks.h"

#include <gtest/gtest.h>

#include <string>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {
std::string bar(int signs) { return std::string(signs, '=') + std::string(50 - signs, ' '); }
}  // namespace

TEST(ProgramProgressCallback, BarAndPercentageAreClipped) {
    ProgramProgressCallback cb;
    cb.setCurrentTask("Programming");
    cb.setTotalAmount(200);
    CaptureStderr();
    cb.increase(250);
    EXPECT_EQ("         Programming: " + bar(50) + " 100.0%\r", GetCapturedStderr());

    cb.resetProgress();
    CaptureStderr();
    cb.increase(2);  // 1 %
    cb.increase(2);  // 2 %
    cb.finish();
    EXPECT_EQ("         Programming: " + bar(0) + "   1.0%\r" +
                  "         Programming: " + bar(1) + "   2.0%\r\n",
              GetCapturedStderr());
}

TEST(ProgramProgressCallback, ZeroTotalShowsNothingDone) {
    ProgramProgressCallback cb;
    CaptureStderr();
    cb.increase(5);
    EXPECT_EQ("                    : " + bar(0) + "   0.0%\r", GetCapturedStderr());
}

TEST(EraseProgressCallback, SpinnerAndSingleDoneLine) {
    CaptureStderr();
    {
        EraseProgressCallback cb;
        for (int i = 0; i <= 4; ++i) cb.increase(i);
        cb.finish();
        cb.finish();
    }
    const std::string prefix = "       Erasing flash: ";
    EXPECT_EQ(prefix + "-\r" + prefix + "\\\r" + prefix + "|\r" + prefix + "/\r" + prefix + "-\r" +
                  "       Erasing flash: done\n",
              GetCapturedStderr());

    CaptureStderr();
    { EraseProgressCallback unfinished; }
    EXPECT_EQ("\n", GetCapturedStderr());
}

TEST(ChipEraseProgressCallback, FirstIncreaseShowsTheTotal) {
    struct Case {
        int total;
        std::string text;
    } cases[] = {
        {61, "                Chip: Remaining time 1 minute and 1 seconds.   \r"},
        {120, "                Chip: Remaining time 2 minutes and 0 seconds.   \r"},
        {59, "                Chip: Remaining time: 59 seconds.                 \r"},
        {0, "                Chip: Remaining time: 0 seconds.                 \r"},
        {-5, "                Chip: Remaining time: 0 seconds.                 \r"},
    };
    for (const Case& c : cases) {
        ChipEraseProgressCallback cb;
        cb.setCurrentTask("Chip");
        cb.setTotalAmount(c.total);
        CaptureStderr();
        cb.increase(123);
        EXPECT_EQ(c.text, GetCapturedStderr()) << c.total;
    }
    ChipEraseProgressCallback cb;
    cb.setCurrentTask("Chip");
    CaptureStderr();
    cb.finish();
    EXPECT_EQ("                Chip: done                                   \n", GetCapturedStderr());
}

TEST(SilentProgressCallback, WritesNothing) {
    SilentProgressCallback cb;
    CaptureStderr();
    cb.setCurrentTask("x");
    cb.setTotalAmount(3);
    cb.increase(1);
    cb.finish();
    EXPECT_EQ("", GetCapturedStderr());
}
