// Which files may change while they are read.
#pragma once

#include "stowline/backup/tree/TreeRules.h"

#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Patterns as those of a run's rules (see Pattern), from each path that was named on. One with a
/// slash may also be of a whole path, from the root on. A plain value; any thread.
class AllowedChanges {
public:
    /// @param named absolute paths; what is below none of them is matched from the root on
    explicit AllowedChanges(std::vector<std::string> named = {}) : named_(std::move(named)) {}

    /// @return false when it is not a pattern
    [[nodiscard]] bool add(std::string_view pattern);

    /// @param path of a file, absolute
    [[nodiscard]] bool allows(const std::string& path) const;

private:
    std::vector<std::string> named_;
    std::vector<Pattern> patterns_;
};

} // namespace stowline::backup
