// Host names with letters of any script, as networks know them.
#pragma once

#include <string>
#include <string_view>

namespace stowline::platform {

/// A host name in the letters of ASCII: labels with others are written with "xn--" (UTS 46,
/// non-transitional; RFC 5891). A name that is in ASCII, or of which none can be made, stays as it
/// is. Any thread.
[[nodiscard]] std::string asciiHostName(std::string_view name);

/// An address with its host in ASCII; all else stays as it is.
[[nodiscard]] std::string withAsciiHost(std::string_view url);

/// An address that people wrote as calls use it: its host in ASCII, everything that no URL may hold
/// escaped (percentEscaped()).
[[nodiscard]] std::string addressForCalls(std::string_view url);

} // namespace stowline::platform
