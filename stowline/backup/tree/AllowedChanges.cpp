#include "stowline/backup/tree/AllowedChanges.h"

#include <algorithm>

namespace stowline::backup {

bool AllowedChanges::add(std::string_view pattern)
{
    auto read = Pattern::of(pattern);
    if (!read)
        return false;
    patterns_.push_back(std::move(*read));
    return true;
}

bool AllowedChanges::allows(const std::string& path) const
{
    const std::string_view whole = path;
    const auto isAllowed = [this](std::string_view below) {
        return std::ranges::any_of(
            patterns_, [below](const Pattern& pattern) { return pattern.matches(below, false); });
    };
    const auto isAllowedBelow = [&](const std::string& named) {
        const std::string above = named.ends_with('/') ? named : named + "/";
        return path.starts_with(above) && isAllowed(whole.substr(above.size()));
    };
    return isAllowed(whole.substr(std::min(path.find_first_not_of('/'), path.size()))) ||
           std::ranges::any_of(named_, isAllowedBelow);
}

} // namespace stowline::backup
