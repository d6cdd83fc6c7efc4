#include "stowline/backup/KeepRules.h"

#include <algorithm>
#include <chrono>
#include <functional>

namespace stowline::backup {

namespace {

constexpr std::int64_t kDaysInAWeek = 7;
constexpr std::int64_t kMonthsInAYear = 12;
/// 1970-01-01 was a Thursday.
constexpr std::int64_t kDaysSinceMonday = 3;

std::int64_t weekOf(std::int64_t day)
{
    const std::int64_t days = day + kDaysSinceMonday;
    return (days - ((days % kDaysInAWeek + kDaysInAWeek) % kDaysInAWeek)) / kDaysInAWeek;
}

std::int64_t monthOf(std::int64_t day)
{
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
    return int{date.year()} * kMonthsInAYear + unsigned{date.month()};
}

/// Keeps the last run of each of the newest so many spans of time.
void keepLastOfEach(const std::vector<DatedRun>& oldestFirst, std::uint64_t count,
                    const std::function<std::int64_t(std::int64_t day)>& spanOf,
                    std::set<std::uint64_t>& kept)
{
    std::set<std::int64_t> spans;
    for (auto run = oldestFirst.rbegin(); run != oldestFirst.rend(); ++run) {
        if (!run->day) {
            kept.insert(run->run);
            continue;
        }
        const std::int64_t span = spanOf(*run->day);
        if (spans.size() < count && spans.insert(span).second)
            kept.insert(run->run);
    }
}

} // namespace

std::set<std::uint64_t> runsToKeep(const std::vector<DatedRun>& oldestFirst, const KeepRules& rules)
{
    std::set<std::uint64_t> kept;
    const std::size_t last = rules.areAny()
                                 ? std::min<std::uint64_t>(rules.last, oldestFirst.size())
                                 : oldestFirst.size();
    for (std::size_t i = oldestFirst.size() - last; i < oldestFirst.size(); ++i)
        kept.insert(oldestFirst[i].run);
    if (rules.daily > 0)
        keepLastOfEach(
            oldestFirst, rules.daily, [](std::int64_t day) { return day; }, kept);
    if (rules.weekly > 0)
        keepLastOfEach(oldestFirst, rules.weekly, weekOf, kept);
    if (rules.monthly > 0)
        keepLastOfEach(oldestFirst, rules.monthly, monthOf, kept);
    return kept;
}

} // namespace stowline::backup
