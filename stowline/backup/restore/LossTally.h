// What did not come back, gathered into one sentence a kind.
#pragma once

#include "stowline/backup/restore/Restored.h"

#include <vector>

namespace stowline::backup {

/// Counts by kind and by whether this user may put it back. One thread at a time.
class LossTally {
public:
    void add(const std::vector<Loss>& losses);

    /// One for each kind that was met, with its sentence.
    [[nodiscard]] std::vector<LossCount> counts() const;

private:
    std::vector<LossCount> counts_; ///< with the first item's sentence
};

} // namespace stowline::backup
