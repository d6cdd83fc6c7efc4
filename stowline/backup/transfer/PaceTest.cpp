#include "stowline/backup/transfer/Pace.h"

#include <gtest/gtest.h>

namespace stowline::backup {
namespace {

using namespace std::chrono_literals;

struct TestClock {
    Moment now{};
    std::function<Moment()> reader()
    {
        return [this] { return now; };
    }
};

TEST(Backoff, PausesGrowUpToHalfAMinuteUntilTheTimeIsUsedUp)
{
    TestClock clock;
    Backoff backoff(60s, clock.reader(), [] { return 1.0; });
    std::vector<double> pauses;
    while (const auto pause = backoff.next()) {
        pauses.push_back(std::chrono::duration<double>(*pause).count());
        clock.now += *pause;
    }
    EXPECT_EQ(pauses, (std::vector<double>{0.5, 1, 2, 4, 8, 16}));
}

TEST(Backoff, NoPauseIsLongerThanHalfAMinute)
{
    TestClock clock;
    Backoff backoff(1000s, clock.reader(), [] { return 1.0; });
    for (int i = 0; i < 6; ++i)
        EXPECT_LT(backoff.next().value(), 30s);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(backoff.next(), 30s);
}

TEST(Backoff, ChanceShortensAPauseToItsHalf)
{
    TestClock clock;
    Backoff backoff(60s, clock.reader(), [] { return 0.0; });
    EXPECT_EQ(backoff.next(), 250ms);
    EXPECT_EQ(backoff.next(), 500ms);
    Backoff none(0s, clock.reader(), [] { return 0.0; });
    EXPECT_EQ(none.next(), std::nullopt);
}

TEST(BandwidthLimit, KeepsTheSumAtTheRate)
{
    TestClock clock;
    BandwidthLimit limit(1000, clock.reader());
    EXPECT_EQ(limit.reserve(500), 0s);
    EXPECT_EQ(limit.reserve(500), 500ms); // of another thread, at the same moment
    EXPECT_EQ(limit.reserve(1000), 1s);
    clock.now += 10s;
    EXPECT_EQ(limit.reserve(1000), 0s); // time that was not used is not saved up
    EXPECT_EQ(limit.reserve(1), 1s);
    BandwidthLimit none(0, clock.reader());
    EXPECT_EQ(none.reserve(1U << 30), 0s);
}

TEST(BandwidthLimit, PartsAreHalfASecondsWorth)
{
    TestClock clock;
    EXPECT_EQ(BandwidthLimit(0, clock.reader()).partSize(1 << 22), 1U << 22);
    EXPECT_EQ(BandwidthLimit(100000, clock.reader()).partSize(1 << 22), 50000U);
    EXPECT_EQ(BandwidthLimit(10, clock.reader()).partSize(1 << 22), 4096U);
    EXPECT_EQ(BandwidthLimit(10, clock.reader()).partSize(100), 100U);
}

} // namespace
} // namespace stowline::backup
