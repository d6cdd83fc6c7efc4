// Dictionaries as bytes: how requests and results cross the process boundary.
#pragma once

#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline {

/// A value as an archive: a binary property list.
/// @return absent when a text in it holds a NUL character or bytes that are not UTF-8.
[[nodiscard]] std::optional<std::string> archive(const Value& root);

/// @return absent when the bytes are not an archive, or one that is damaged, endless or nested
/// deeper
///         than 512.
[[nodiscard]] std::optional<Value> unarchive(std::string_view bytes);

/// The helper program's argument for a request: Base64 text in one line.
[[nodiscard]] std::optional<std::string> encodedRequest(const Dictionary& request);

} // namespace stowline
