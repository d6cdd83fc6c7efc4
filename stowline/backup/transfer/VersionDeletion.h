// Deleting what the service holds, one list of versions at a time.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/transfer/Tries.h"

#include <optional>
#include <string>

namespace stowline::backup {

/// Asks the service to delete the versions of a list. Also safe where an answer was lost: then the
/// repetition finds nothing to delete, which the service calls a refusal. What failed is therefore
/// to be asked after (askedAfter()) before it counts as still there.
/// @param list as the service names it; an empty one names nothing and is refused
/// @return absent when it says that it did
[[nodiscard]] std::optional<StepFailure> deletionOf(const Account& account, const std::string& list,
                                                    Tries& tries);

} // namespace stowline::backup
