// Addresses of the settings, filled for one call.
#pragma once

#include "stowline/platform/values/Format.h"
#include "stowline/platform/values/Value.h"

#include <span>
#include <string>

namespace stowline {

/// The entry's "URL" with its "%@" filled in order, percent-escaped for use as a URL; empty when
/// the entry has none.
[[nodiscard]] std::string filledUrl(const Dictionary& entry,
                                    std::span<const platform::FormatArgument> arguments);

} // namespace stowline
