// How the faults of a settings file are shown.
#pragma once

#include "stowline/service/SettingsCheck.h"

#include <string>
#include <vector>

namespace stowline::cli {

/// Prints an item for each fault.
/// @param file path or address, as it is shown
void showFaults(const std::string& file, const std::vector<SettingsFault>& faults);

} // namespace stowline::cli
