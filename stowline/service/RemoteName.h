// Paths of this machine as the service can carry them, and back.
#pragma once

#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// A path in which every name can travel in XML: a name that cannot (control characters, bytes that
/// are not UTF-8), that looks like the result of this, or that begins with "=stowline=", which is
/// kept for what the engine stores of itself, becomes "=b64=" and the Base64 of its bytes, with "-"
/// and "_" for "+" and "/" (RFC 4648 section 5).
[[nodiscard]] std::string remotePath(std::string_view path);

/// The path that remotePath() was made from.
[[nodiscard]] std::string localPath(std::string_view remote);

} // namespace stowline
#pragma GCC visibility pop
