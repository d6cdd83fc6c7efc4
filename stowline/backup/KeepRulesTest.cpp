#include "stowline/backup/KeepRules.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace stowline::backup;
using Runs = std::set<std::uint64_t>;
using namespace std::chrono_literals;

std::int64_t dayOf(std::chrono::year_month_day date)
{
    return std::chrono::sys_days(date).time_since_epoch().count();
}

/// Runs from 1 on, one a day, the last on a date.
std::vector<DatedRun> onePerDay(std::uint64_t count, std::int64_t last)
{
    std::vector<DatedRun> runs;
    for (std::uint64_t run = 1; run <= count; ++run)
        runs.push_back({run, last - static_cast<std::int64_t>(count - run)});
    return runs;
}

const std::int64_t kSunday = dayOf(2026y / 11 / 22);

TEST(KeepRules, KeepWhatTheirTableSays)
{
    struct Case {
        const char* what;
        KeepRules rules;
        Runs kept;
    };
    // Ten runs, from Friday, 13 November 2026, to Sunday, 22 November.
    const std::vector<Case> table{
        {"no rule keeps all", {}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        {"the last ones", {.last = 3}, {8, 9, 10}},
        {"more than there are", {.last = 11}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
        {"days", {.daily = 2}, {9, 10}},
        {"weeks end on Sunday", {.weekly = 2}, {3, 10}},
        {"fewer weeks than asked for", {.weekly = 9}, {3, 10}},
        {"a month", {.monthly = 5}, {10}},
        {"each rule adds", {.last = 1, .daily = 3, .weekly = 2, .monthly = 1}, {3, 8, 9, 10}},
    };
    for (const Case& example : table)
        EXPECT_EQ(runsToKeep(onePerDay(10, kSunday), example.rules), example.kept) << example.what;
}

TEST(KeepRules, KeepTheLastRunOfADayAWeekAndAMonth)
{
    const std::int64_t newYear = dayOf(2026y / 1 / 1); // a Thursday
    const std::vector<DatedRun> runs{{1, newYear - 3}, {2, newYear - 1}, {3, newYear - 1},
                                     {4, newYear},     {5, newYear},     {6, newYear + 4}};
    EXPECT_EQ(runsToKeep(runs, {.daily = 3}), (Runs{3, 5, 6}));
    EXPECT_EQ(runsToKeep(runs, {.weekly = 2}), (Runs{5, 6})) << "a week may lie in two years";
    EXPECT_EQ(runsToKeep(runs, {.monthly = 2}), (Runs{3, 6})) << "December is not January";
}

TEST(KeepRules, CountDaysThatHaveARunAndNotThoseThatHaveNone)
{
    const std::vector<DatedRun> runs{{1, kSunday - 400}, {2, kSunday - 30}, {3, kSunday}};
    EXPECT_EQ(runsToKeep(runs, {.daily = 2}), (Runs{2, 3}));
    EXPECT_EQ(runsToKeep(runs, {.monthly = 3}), (Runs{1, 2, 3}));
}

TEST(KeepRules, KeepWhatHasNoDayWhereDaysCountAndNotElse)
{
    const std::vector<DatedRun> runs{{1, std::nullopt}, {2, kSunday - 1}, {3, kSunday}};
    EXPECT_EQ(runsToKeep(runs, {.daily = 1}), (Runs{1, 3}));
    EXPECT_EQ(runsToKeep(runs, {.last = 1}), (Runs{3}));
}

TEST(KeepRules, GoByNumbersWhereAClockJumped)
{
    // The service's clock was a year ahead when it took run 2.
    const std::vector<DatedRun> runs{{1, kSunday - 1}, {2, kSunday + 365}, {3, kSunday}};
    EXPECT_EQ(runsToKeep(runs, {.daily = 1}), (Runs{3})) << "the newest run is that of the highest "
                                                            "number";
    EXPECT_EQ(runsToKeep(runs, {.daily = 2}), (Runs{2, 3}));
    EXPECT_EQ(runsToKeep(runs, {.last = 1}), (Runs{3}));
}

TEST(KeepRules, KeepTheNewestRunByEveryRule)
{
    for (const KeepRules& rules : {KeepRules{.last = 1}, KeepRules{.daily = 1},
                                   KeepRules{.weekly = 1}, KeepRules{.monthly = 1}})
        EXPECT_TRUE(runsToKeep(onePerDay(40, kSunday), rules).contains(40));
    EXPECT_EQ(runsToKeep({}, {.last = 1}), Runs{});
}

TEST(KeepRules, CountWeeksBefore1970Too)
{
    EXPECT_EQ(runsToKeep({{1, -5}, {2, -4}, {3, -3}}, {.weekly = 2}), (Runs{2, 3}));
}

} // namespace
