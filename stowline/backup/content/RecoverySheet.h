// The master key as text on paper, and back.
#pragma once

#include "stowline/backup/content/MasterKey.h"

#include <string>
#include <string_view>

namespace stowline::backup {

/// The key as people can write it down and type it again: 56 letters and digits in groups of four
/// (RFC 4648 section 6), with a check of 3 bytes in it. Whoever sees it has the key. Throws
/// std::bad_alloc.
[[nodiscard]] platform::SecretBytes recoveryText(const MasterKey& key);

/// The key of such a text; blanks, hyphens and lower case are fine, as are 0, 1 and 8 for the
/// letters that they look like. Throws KeyFault (damaged) when something in it was mistyped.
[[nodiscard]] MasterKey keyOfRecoveryText(std::string_view text);

} // namespace stowline::backup
