// Which items below a named path are put back, and where they go.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/tree/PathBelow.h"
#include "stowline/backup/tree/TreeRules.h"

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace stowline::backup {

/// The rules of a backup, over stored items: patterns with a slash count from the named path on,
/// and what is named itself is taken, unless it is a folder in which nothing is.
class Selection {
public:
    /// @param rules must outlive this
    /// @param onlyPaths besides folders on the way, items of these paths alone are taken; empty:
    /// all
    ///        are; must outlive this
    Selection(std::string named, const TreeRules& rules, const std::set<std::string>& onlyPaths)
        : named_(std::move(named)), rules_(rules), onlyPaths_(onlyPaths)
    {
    }

    /// Hands on what is taken, in walking order. When there are patterns of what is taken, folders
    /// that match none come only before something in them that does.
    /// @param take returns whether to go on
    /// @param idle is shown all that is looked at
    void forEach(const ItemIndex& items, IdlePatterns& idle,
                 const std::function<bool(const StoredItem&)>& take) const;

    /// Whether an item is taken, all folders above it considered.
    [[nodiscard]] bool takes(std::string_view path, bool isFolder = false) const;

    /// Whether a pattern leaves it out, or a folder above it, with all that is below.
    [[nodiscard]] bool leavesOut(std::string_view path, bool isFolder) const;

    /// Where an item goes, relative to the folder that the named path's last name goes into: of
    /// "/a/b" the item "/a/b/c" goes to "b/c". Of "/" the root itself goes to "".
    [[nodiscard]] std::string placeOf(std::string_view path) const;

    [[nodiscard]] const std::string& named() const { return named_; }

private:
    [[nodiscard]] std::string_view below(std::string_view path) const;
    [[nodiscard]] bool isExcluded(std::string_view path, bool isFolder) const;
    [[nodiscard]] bool isIncluded(std::string_view path, bool isFolder) const;

    std::string named_;
    const TreeRules& rules_;
    const std::set<std::string>& onlyPaths_;
};

} // namespace stowline::backup
