// Paths as the index sorts them.
#pragma once

#include <string>
#include <string_view>

namespace stowline::backup {

/// A path with its slashes as NUL bytes: the order of such keys, byte by byte, is the order in
/// which trees are walked (comparePaths).
[[nodiscard]] std::string pathKey(std::string_view path);

/// The path that a key stands for.
[[nodiscard]] std::string pathOfKey(std::string_view key);

/// The keys of a path and of everything below it: from `first` on, before `end`.
struct KeyRange {
    std::string first;
    std::string end;
};
[[nodiscard]] KeyRange keysAtAndBelow(std::string_view path);

} // namespace stowline::backup
