#include "stowline/backup/restore/Selection.h"

#include <vector>

namespace stowline::backup {

std::string_view Selection::below(std::string_view path) const
{
    if (path == named_)
        return {};
    return path.substr(named_ == "/" ? 1 : named_.size() + 1);
}

/// Whether a pattern leaves out this very item (with what is below it).
bool Selection::isExcluded(std::string_view path, bool isFolder) const
{
    return path != named_ &&
           rules_.excludes({.below = below(path), .isFolder = isFolder, .isIncluded = true});
}

/// Whether a pattern takes the item or a folder above it.
bool Selection::isIncluded(std::string_view path, bool isFolder) const
{
    if (!onlyPaths_.empty() && !onlyPaths_.contains(std::string(path)))
        return false;
    if (!rules_.hasIncludes() || (path == named_ && !isFolder))
        return true;
    for (std::string_view at = path; at != named_ && !at.empty(); at = parentOf(at)) {
        if (rules_.includes(below(at), isFolder || at != path))
            return true;
    }
    return false;
}

void Selection::forEach(const ItemIndex& items, IdlePatterns& idle,
                        const std::function<bool(const StoredItem&)>& take) const
{
    std::string leftOut;
    std::vector<StoredItem> awaiting; // folders, each in the one before, in which nothing is yet
    items.forEach(named_, [&](const StoredItem& stored) {
        const std::string& path = stored.item.path;
        const bool isFolder = stored.item.kind == ItemKind::folder;
        if (!leftOut.empty() && isAtOrBelow(path, leftOut))
            return true;
        if (path != named_)
            idle.meet(below(path), isFolder);
        if (isExcluded(path, isFolder)) {
            leftOut = path;
            return true;
        }
        while (!awaiting.empty() && !isAtOrBelow(path, awaiting.back().item.path))
            awaiting.pop_back();
        if (!isIncluded(path, isFolder)) {
            if (isFolder)
                awaiting.push_back(stored);
            return true;
        }
        for (const StoredItem& folder : awaiting) {
            if (!take(folder))
                return false;
        }
        awaiting.clear();
        return take(stored);
    });
}

bool Selection::leavesOut(std::string_view path, bool isFolder) const
{
    for (std::string_view at = path; at != named_ && !at.empty(); at = parentOf(at)) {
        if (isExcluded(at, isFolder || at != path))
            return true;
    }
    return false;
}

bool Selection::takes(std::string_view path, bool isFolder) const
{
    return isAtOrBelow(path, named_) && isIncluded(path, isFolder) && !leavesOut(path, isFolder);
}

std::string Selection::placeOf(std::string_view path) const
{
    const std::string_view above = parentOf(named_);
    const std::size_t cut = above.empty() || above == "/" ? 1 : above.size() + 1;
    return path.size() <= cut ? std::string() : std::string(path.substr(cut));
}

} // namespace stowline::backup
