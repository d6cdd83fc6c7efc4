// The units of a profile's schedule.
#pragma once

#include "stowline/platform/desktop/ServiceUnits.h"

#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

/// Those of the default profile have the plain name. @return absent when the profile's name is too
/// long for that of a unit
[[nodiscard]] std::optional<platform::UserUnits> scheduleUnits(const std::string& profile);

/// The profiles that have a schedule, this one left out.
[[nodiscard]] std::vector<std::string> otherScheduledProfiles(const std::string& profile);

} // namespace stowline::cli
