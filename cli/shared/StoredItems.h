// Listing and searching a run's items, as ls and search do what is stored now.
#pragma once

#include "cli/shared/ExitStatus.h"
#include "stowline/backup/RunChoice.h"

#include <cstdint>
#include <optional>
#include <string>

namespace stowline::cli {

struct StoredListing {
    std::string path; ///< absolute
    std::string sortField = "Name";
    bool isDescending = false;
    std::optional<std::int64_t> limit; ///< items at most
};

/// Shows what a run holds in a folder, or the item itself when it is none; ends the output.
[[nodiscard]] ExitStatus listStored(const backup::RunChoice& choice, const StoredListing& listing);

/// Shows the files of a run at and below a path whose names match: a part of the name, or a whole
/// one with * and ?; capital and small letters are the same. Ends the output.
[[nodiscard]] ExitStatus searchStored(const backup::RunChoice& choice, const std::string& below,
                                      const std::string& text, std::optional<std::int64_t> limit);

} // namespace stowline::cli
