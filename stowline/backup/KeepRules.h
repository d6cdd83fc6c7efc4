// Which runs are kept when others are forgotten.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// How many runs are kept; a run that any rule keeps is kept. A plain value.
struct KeepRules {
    std::uint64_t last = 0;    ///< the newest so many
    std::uint64_t daily = 0;   ///< the last run of each of the newest so many days that have one
    std::uint64_t weekly = 0;  ///< of weeks likewise, which begin on Monday
    std::uint64_t monthly = 0; ///< of months of the calendar

    [[nodiscard]] bool areAny() const { return last + daily + weekly + monthly > 0; }
    [[nodiscard]] bool needDays() const { return daily + weekly + monthly > 0; }
};

/// A finished run and the day on which it was stored.
struct DatedRun {
    std::uint64_t run = 0;
    /// In days since 1970-01-01, as the calendar on the wall has them; absent: nobody knows.
    std::optional<std::int64_t> day;
};

/// The runs that are kept. With no rule at all, and where a rule asks for a day that nobody knows,
/// a run is kept. The newest run is kept by every rule.
/// @param oldestFirst by their numbers, whatever their days
[[nodiscard]] std::set<std::uint64_t> runsToKeep(const std::vector<DatedRun>& oldestFirst,
                                                 const KeepRules& rules);

} // namespace stowline::backup
#pragma GCC visibility pop
