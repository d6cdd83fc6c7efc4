// The days of grace of what was deleted, as the service tells of them.
#pragma once

#include "cli/shared/Session.h"

#include <cstdint>
#include <optional>
#include <string>

namespace stowline::cli {

struct Grace {
    std::uint64_t seconds = 0; ///< 0: nothing is kept
};

/// Asks the service. Absent when the settings do not say how, or no answer comes.
[[nodiscard]] std::optional<Grace> graceOf(const Session& session);

/// Says for how long what was deleted just now can be had back, and that it counts until then; says
/// nothing where that is not known.
void noteGrace(const Session& session);

} // namespace stowline::cli
