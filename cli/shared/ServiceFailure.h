// How a failed call of the broker becomes a sentence and an exit status.
#pragma once

#include "cli/shared/ExitStatus.h"
#include "stowline/platform/values/Error.h"

#include <optional>
#include <string>

namespace stowline::cli {

/// Checks that the settings can be used and have an entry for a web method; says what is wrong.
/// @return absent when all is well.
[[nodiscard]] std::optional<ExitStatus> settingsFailure(const std::string& webMethod);

/// Ends the output for a call that brought nothing.
/// @param error what the broker stored; absent when it stored nothing
[[nodiscard]] ExitStatus callFailure(const std::optional<Error>& error);

} // namespace stowline::cli
