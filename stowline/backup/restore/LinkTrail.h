// Where a path leads by the links that a run recorded.
#pragma once

#include "stowline/backup/index/ItemIndex.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline::backup {

/// Follows a path through the links of a run, those on its way and the one at its end. What the run
/// does not hold is taken for a folder.
/// @param path absolute
/// @return without ".", ".." and links; absent when they lead in a circle
[[nodiscard]] std::optional<std::string> pathThroughLinks(const ItemIndex& items,
                                                          std::string_view path);

} // namespace stowline::backup
