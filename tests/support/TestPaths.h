// Where the tree and the built programs are. Only TestPaths.cpp knows this machine's folders, so
// that every other test compiles to the same object in every checkout.
#pragma once

#include <string>
#include <string_view>

namespace stowline::test {

/// The folder with the built programs and their bundle.
[[nodiscard]] std::string builtPrograms();

/// A file of the source tree, by its path from the root.
[[nodiscard]] std::string sourceFile(std::string_view path);

} // namespace stowline::test
