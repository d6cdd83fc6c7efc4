#include "cli/shared/Progress.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(BytesText, TakesTheUnitThatFits)
{
    EXPECT_EQ(bytesText(0), "0 B");
    EXPECT_EQ(bytesText(999), "999 B");
    EXPECT_EQ(bytesText(1000), "1.0 kB");
    EXPECT_EQ(bytesText(999949), "999.9 kB");
    EXPECT_EQ(bytesText(999960), "1.0 MB");
    EXPECT_EQ(bytesText(1.5e9), "1.5 GB");
    EXPECT_EQ(bytesText(18446744073709551615.0), "18.4 EB");
}

TEST(DurationText, RoundsUp)
{
    EXPECT_EQ(durationText(seconds(0)), "0:00");
    EXPECT_EQ(durationText(milliseconds(6001)), "0:07");
    EXPECT_EQ(durationText(seconds(754)), "12:34");
    EXPECT_EQ(durationText(seconds(3723)), "1:02:03");
    EXPECT_EQ(durationText(seconds(-5)), "0:00");
}

TEST(ProgressBar, TellsEverythingThereIsRoomFor)
{
    const ProgressState state{0.5, 2000000, seconds(2), 3, 7};
    EXPECT_EQ(progressBar(state, 110), "[####################                    ]  50%  1.0 MB of "
                                       "2.0 MB  500.0 kB/s  0:02 left  part 3 of 7");
    EXPECT_EQ(progressBar(state, 60), " 50%  1.0 MB of 2.0 MB  500.0 kB/s  0:02 left  part 3 of 7");
    EXPECT_EQ(progressBar(state, 50), " 50%  1.0 MB of 2.0 MB  500.0 kB/s  0:02 left");
    EXPECT_EQ(progressBar(state, 33), "[###    ]  50%  1.0 MB of 2.0 MB");
    EXPECT_EQ(progressBar(state, 4), "");
    for (std::size_t columns = 0; columns < 120; ++columns)
        EXPECT_LE(progressBar(state, columns).size(), columns);
}

TEST(ProgressBar, KnowsNoRateAtTheStart)
{
    EXPECT_EQ(progressBar({}, 40), "[                    ]   0%  0 B of 0 B");
}

TEST(ProgressSentence, SaysTheSame)
{
    EXPECT_EQ(progressSentence({0.25, 4000, seconds(1), 1, 1}),
              "25% of 4.0 kB, 1.0 kB/s, 0:03 left");
}

/// A display with a clock and a screen of the test's own.
class DisplayTest : public testing::Test {
protected:
    ProgressStyle style(ProgressStyle::Kind kind)
    {
        return {.kind = kind,
                .columns = 60,
                .now = [this] { return now_; },
                .write = [this](const std::string& text) { writes_.push_back(text); }};
    }
    std::chrono::steady_clock::time_point now_{};
    std::vector<std::string> writes_;
};

TEST_F(DisplayTest, RedrawsABarAtMostTenTimesASecond)
{
    ProgressDisplay display(style(ProgressStyle::Kind::bar));
    display.beginPart();
    for (int i = 0; i < 1000; ++i) {
        display.update(i / 1000.0, 1000);
        now_ += milliseconds(1);
    }
    EXPECT_EQ(writes_.size(), 10U);
    EXPECT_TRUE(writes_[0].starts_with("\r"));
    EXPECT_TRUE(writes_[0].ends_with("\x1b[K"));
}

TEST_F(DisplayTest, LeavesNothingOfTheBar)
{
    {
        ProgressDisplay display(style(ProgressStyle::Kind::bar));
        display.beginPart();
        display.update(0.5, 1000);
    }
    EXPECT_EQ(writes_.back(), "\r\x1b[K");
    EXPECT_EQ(writes_.size(), 2U);
}

TEST_F(DisplayTest, WritesALineAMinuteWhereThereIsNoTerminal)
{
    ProgressDisplay display(style(ProgressStyle::Kind::lines), 2);
    display.beginPart();
    for (int i = 0; i < 150; ++i) {
        display.update(0.5, 1000);
        now_ += seconds(1);
    }
    ASSERT_EQ(writes_.size(), 2U);
    EXPECT_EQ(writes_[0], "50% of 1.0 kB, 8 B/s, 1:00 left, part 1 of 2\n");
}

TEST_F(DisplayTest, WritesNothingWhenNotAskedTo)
{
    ProgressDisplay display(style(ProgressStyle::Kind::none));
    display.beginPart();
    display.update(0.5, 1000);
    display.clear();
    EXPECT_TRUE(writes_.empty());
}

} // namespace
} // namespace stowline::cli
