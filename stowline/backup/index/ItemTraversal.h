// Going through the rows of an index in walking order.
#pragma once

#include "stowline/backup/index/ItemTables.h"
#include "stowline/backup/index/PathKey.h"

#include <functional>
#include <optional>
#include <string>

namespace stowline::backup {

struct Choice {
    std::int64_t changedAfter = -1; ///< run; -1: all rows
    bool withGone = false;
};

/// Hands on what is in the folders of a range: path, and item (absent: gone). Reads page by page,
/// so that what is taken may change the index meanwhile. Ends when the function returns false.
void traverse(ItemIndex::Tables& tables, const KeyRange& folders, const Choice& choice,
              const std::function<bool(std::string&&, std::optional<StoredItem>&)>& take);

} // namespace stowline::backup
