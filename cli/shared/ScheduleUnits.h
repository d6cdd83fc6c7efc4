// The units of a profile's schedule.
#pragma once

#include "stowline/platform/desktop/ServiceUnits.h"

#include <optional>
#include <string>

namespace stowline::cli {

/// Those of the default profile have the plain name. @return absent when the profile's name is too
/// long for that of a unit
[[nodiscard]] std::optional<platform::UserUnits> scheduleUnits(const std::string& profile);

} // namespace stowline::cli
