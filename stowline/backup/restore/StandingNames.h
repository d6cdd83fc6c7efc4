// Names that stood in the folders of a target before a restore put anything there, and names that a
// file system does not tell apart.
#pragma once

#include "stowline/platform/files/TargetFolder.h"

#include <string>
#include <unordered_set>
#include <vector>

namespace stowline::backup {

/// Asked folder by folder, in walking order: it remembers a folder's names as long as items below
/// that come. Not for several threads.
class StandingNames {
public:
    explicit StandingNames(const platform::TargetFolder& root) : root_(root) {}

    /// A folder that the restore has made: nothing stood there.
    void note(const std::string& madeFolder);

    /// Whether an item of this very name stood in a folder when it was first asked about.
    /// @param folder relative to the root
    [[nodiscard]] bool stood(const std::string& folder, const std::string& name);

private:
    struct Folder {
        std::string path;
        std::unordered_set<std::string> names;
    };
    void leaveAllBut(const std::string& folder);

    const platform::TargetFolder& root_;
    std::vector<Folder> folders_; ///< each below the one before
};

/// What the file system shows when it is asked for a name that nobody gave: the very names in the
/// folder of the item that it finds. Empty when there is an item of just that name.
[[nodiscard]] std::vector<std::string> otherNamesFor(const platform::TargetFolder& folder,
                                                     const std::string& name);

} // namespace stowline::backup
