// Where what self-tests have proven of a chain is noted.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/backup/proof/ProofBook.h"

#include <optional>
#include <string>

namespace stowline::backup {

/// The book of a chain on this machine, to look at. @return absent when there is none
[[nodiscard]] std::optional<ProofBook> proofBookOf(const RunChoice& choice,
                                                   const std::string& chain);

} // namespace stowline::backup
