// Regular expressions that cannot hang their caller.
#pragma once

#include <string_view>

namespace stowline::platform {

/// Whether a regular expression (ICU's syntax) matches a whole text. Time and memory are bounded:
/// what takes more than about a second or 8 MiB of backtracking counts as no match, as does a
/// pattern that is none. Bytes that are not UTF-8 stand for U+FFFD. Reentrant.
[[nodiscard]] bool matchesWhole(std::string_view text, std::string_view pattern);

} // namespace stowline::platform
