// Paths as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::platform {

/// The parts of a path between its slashes, of which several count as one. A leading slash is a
/// first component "/", a trailing one a last component "/"; the root is "/" alone.
[[nodiscard]] std::vector<std::string> pathComponents(std::string_view path);

/// The last component; trailing slashes do not count. "/" for the root, empty for an empty path.
[[nodiscard]] std::string lastPathComponent(std::string_view path);

/// A path with one more component.
[[nodiscard]] std::string appendingPathComponent(std::string_view path, std::string_view component);

/// A path in its plain form: a leading "~" or "~name" becomes that user's home directory, empty and
/// "." components and trailing slashes go, and ".." takes away the component before it. Where that
/// component is a link on disk, the link is resolved first, so that the path still leads to the
/// same item. A relative path stays relative.
[[nodiscard]] std::string standardizedPath(std::string_view path);

/// The home directory of this user (HOME, else the user database), or of a user by name; absent
/// when there is none.
[[nodiscard]] std::optional<std::string> homeDirectory();
[[nodiscard]] std::optional<std::string> homeDirectoryOf(const std::string& user);

} // namespace stowline::platform
