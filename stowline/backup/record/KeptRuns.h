// Which runs of a chain are kept: the one place that says so.
#pragma once

#include "stowline/backup/record/RecordChain.h"

#include <cstdint>
#include <vector>

namespace stowline::backup {

/// The runs that can be read by default, and whose contents must all be there: the finished ones
/// that are not forgotten, the oldest first.
[[nodiscard]] std::vector<std::uint64_t> keptRuns(const RecordChain& chain);

} // namespace stowline::backup
