#include "stowline/backup/restore/Selection.h"

#include "stowline/platform/text/GlobPattern.h"

#include <algorithm>

namespace stowline::backup {

bool isAtOrBelow(std::string_view path, std::string_view folder)
{
    return folder == "/" || path == folder ||
           (path.starts_with(folder) && path.size() > folder.size() && path[folder.size()] == '/');
}

bool Selection::matchesAny(const std::vector<std::string>& patterns, std::string_view path) const
{
    const std::string name(nameOf(path));
    const std::string below(path == named_ ? nameOf(path)
                                           : path.substr(named_ == "/" ? 1 : named_.size() + 1));
    return std::ranges::any_of(patterns, [&](const std::string& pattern) {
        if (!pattern.contains('/'))
            return platform::matchesGlob(pattern, name, false);
        return platform::matchesGlob(pattern.substr(pattern.starts_with('/') ? 1 : 0), below, true);
    });
}

bool Selection::isExcluded(std::string_view path) const
{
    return path != named_ && matchesAny(exclude_, path);
}

bool Selection::isIncluded(std::string_view path) const
{
    return include_.empty() || matchesAny(include_, path);
}

bool Selection::takes(std::string_view path) const
{
    if (!isAtOrBelow(path, named_) || !isIncluded(path))
        return false;
    for (std::string_view at = path; at != named_ && !at.empty(); at = parentOf(at)) {
        if (isExcluded(at))
            return false;
    }
    return true;
}

std::string Selection::placeOf(std::string_view path) const
{
    const std::string_view above = parentOf(named_);
    const std::size_t cut = above.empty() || above == "/" ? 1 : above.size() + 1;
    return path.size() <= cut ? std::string() : std::string(path.substr(cut));
}

} // namespace stowline::backup
