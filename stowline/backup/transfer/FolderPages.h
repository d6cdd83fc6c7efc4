// The entries of a stored folder, asked for a page at a time.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/transfer/Tries.h"
#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace stowline::backup {

/// Hands over each entry that the service lists of a folder of the account's machine, in its order.
/// A list that ends before as many entries came as the service announced is a failed question:
/// what is missing from it may be there all the same.
/// @param folder as the service carries it
/// @param pageSize entries to ask for at once, at least 1
/// @return absent when all entries were handed over; else some may have been
[[nodiscard]] std::optional<StepFailure>
forEachEntry(const Account& account, Tries& tries, const std::string& folder,
             const std::function<void(const Dictionary&)>& take, std::int64_t pageSize = 1000);

} // namespace stowline::backup
