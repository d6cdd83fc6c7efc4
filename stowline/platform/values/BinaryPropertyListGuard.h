// Looks a binary property list over before a library builds it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace stowline::platform {

/// The library that builds values from binary property lists follows references by recursion and
/// builds a shared object once for every reference to it, so a list of a few hundred bytes can
/// exhaust the stack or the memory. This walks the reference graph first.
/// @return absent when the list can be built safely; else a sentence: not a binary property list,
///         a reference or offset outside the file, a cycle, nesting deeper than 512, more values
///         than the file has bytes, more than 1 GiB of content.
[[nodiscard]] std::optional<std::string> faultInBinaryPropertyList(std::string_view bytes);

} // namespace stowline::platform
