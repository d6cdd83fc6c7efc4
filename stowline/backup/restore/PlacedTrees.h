// What the trees of one restore know of each other, so that the names of a hard link are one file
// though they lie below different named paths.
#pragma once

#include "stowline/backup/restore/Selection.h"

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {

/// A tree that was put in place: what is in it, and the folder that it went into.
struct PlacedTree {
    Selection selection;
    std::filesystem::path root;
};

/// Filled tree by tree; one thread at a time. Paths are those of the run.
struct PlacedTrees {
    std::vector<PlacedTree> trees;
    /// For first names that are not in place: the name that has their content.
    std::map<std::string, std::string> substitutes;
    std::set<std::string> notInPlace; ///< of all but folders
    std::set<std::string> wouldBeNew; ///< in a dry run: what would be put there

    /// The tree whose named path ends with a name; null when none does.
    [[nodiscard]] const PlacedTree* treeNamed(const std::string& name) const;

    /// The tree in which an item was put in place; null when it was in none.
    [[nodiscard]] const PlacedTree* treeWith(const std::string& path) const;
};

} // namespace stowline::backup
