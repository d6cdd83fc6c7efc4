// Which items below a named path are put back, and where they go.
#pragma once

#include "stowline/backup/tree/ItemRecord.h"

#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Pure. Patterns without a slash are for names, those with one for paths below the named one.
class Selection {
public:
    Selection(std::string named, const std::vector<std::string>& include,
              const std::vector<std::string>& exclude)
        : named_(std::move(named)), include_(include), exclude_(exclude)
    {
    }

    /// Whether a pattern leaves out this very item (with what is below it).
    [[nodiscard]] bool isExcluded(std::string_view path) const;
    /// Whether an item that is no folder is wanted, as far as its own name goes.
    [[nodiscard]] bool isIncluded(std::string_view path) const;
    /// Whether an item below the named path is taken, all folders above it considered.
    [[nodiscard]] bool takes(std::string_view path) const;

    /// Where an item goes, relative to the folder that the named path's last name goes into: of
    /// "/a/b" the item "/a/b/c" goes to "b/c". Of "/" the root itself goes to "".
    [[nodiscard]] std::string placeOf(std::string_view path) const;

    [[nodiscard]] const std::string& named() const { return named_; }

private:
    [[nodiscard]] bool matchesAny(const std::vector<std::string>& patterns,
                                  std::string_view path) const;

    std::string named_;
    const std::vector<std::string>& include_;
    const std::vector<std::string>& exclude_;
};

/// Whether a path is another one or below it.
[[nodiscard]] bool isAtOrBelow(std::string_view path, std::string_view folder);

} // namespace stowline::backup
