// Listings of the service, page after page.
#pragma once

#include "cli/shared/Session.h"

#include <functional>
#include <optional>
#include <string>

namespace stowline::cli {

struct RemoteListing {
    std::string systemName = {};
    std::string path = {};
    std::string sortField = "Name";
    bool isAscending = true;
    std::int64_t pageSize = 1000;
    std::optional<std::int64_t> limit = std::nullopt; ///< entries at most
};

using TakeEntry = std::function<void(const Dictionary& entry)>;

/// Hands over the entries of a folder, or the files whose names match a text, one page in memory at
/// a time. The records of runs are passed over. A list that ends before the count that the service
/// told is reached is a failure.
/// @param error as the broker's
/// @return the service's count of all, less what was passed over; absent when a page failed or the
/// user asked to stop
[[nodiscard]] std::optional<std::int64_t> forEachInFolder(const Session& session,
                                                          const RemoteListing& listing,
                                                          const TakeEntry& take, ErrorSlot error);
[[nodiscard]] std::optional<std::int64_t> forEachMatch(const Session& session,
                                                       const RemoteListing& listing,
                                                       const std::string& text,
                                                       const TakeEntry& take, ErrorSlot error);

} // namespace stowline::cli
