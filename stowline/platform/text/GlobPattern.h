// File-name patterns.
#pragma once

#include <string>

namespace stowline::platform {

/// Whether a pattern of the shell (glob(7): "*", "?", "[…]", "\") matches the whole text, bytes as
/// they are. With `slashesCount` no wildcard matches a slash. Any thread.
[[nodiscard]] bool matchesGlob(const std::string& pattern, const std::string& text,
                               bool slashesCount);

} // namespace stowline::platform
