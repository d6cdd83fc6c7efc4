// What the user named: followed to where it really is.
#pragma once

#include "stowline/backup/tree/TreeWalk.h"

#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// A path that the walk must meet: what is named, by its real path, or a link on the way there.
struct Target {
    std::string path;
    bool isNamed = false; ///< else a link that is recorded and no more
};

/// Where named paths lead. Sorted by comparePaths(), each path once.
struct NamedPaths {
    std::vector<Target> targets;
    std::vector<WalkFailure> failures;
};

/// Follows paths link by link, folder by folder, from open folder to open folder.
[[nodiscard]] NamedPaths followPaths(const std::vector<std::string>& paths);

/// The targets in walking order, taken one by one as the walk comes by.
class TargetCursor {
public:
    explicit TargetCursor(std::vector<Target> targets) : targets_(std::move(targets)) {}

    /// The next target, if it comes before a path (absent: in any case); it is taken.
    [[nodiscard]] const Target* takeBefore(std::string_view path);
    [[nodiscard]] const Target* takeAny();
    /// The target at a path; it is taken.
    [[nodiscard]] const Target* takeAt(std::string_view path);
    /// The next target below a path; it is taken.
    [[nodiscard]] const Target* takeBelow(std::string_view path);

    [[nodiscard]] bool hasBelow(std::string_view path) const;
    /// The names in a folder that lead to the coming targets below it, by their bytes.
    [[nodiscard]] std::vector<std::string> namesBelow(std::string_view folder) const;

private:
    std::vector<Target> targets_;
    std::size_t next_ = 0;
};

} // namespace stowline::backup
