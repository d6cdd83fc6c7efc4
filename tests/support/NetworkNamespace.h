// Networks of a test's own.
#pragma once

#include <optional>
#include <string>

namespace stowline::test {

/// Puts this process into a new, empty network namespace. Before it has threads.
/// @return why that cannot be done here; absent when it is done.
[[nodiscard]] std::optional<std::string> enterNetworkNamespace();

/// Runs "ip" with these words in the process's namespace; throws when it fails.
void ip(const std::string& words);

} // namespace stowline::test
