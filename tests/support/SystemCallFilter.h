// Kernels that lack system calls, as older ones and strict containers do.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stowline::test {

/// Makes these system calls of this process and its later children fail with ENOSYS, for good.
/// @return why that cannot be done here; absent when it is done
[[nodiscard]] std::optional<std::string> loseSystemCalls(const std::vector<long>& numbers);

/// Makes clone() refuse to hand out a handle of the child (CLONE_PIDFD), as loseSystemCalls().
[[nodiscard]] std::optional<std::string> loseProcessHandles();

/// Runs a part of a test in a process of its own, for what cannot be taken back.
/// @return whether it ended without a failed expectation, whose text is on standard error
[[nodiscard]] bool holdsInAProcessOfItsOwn(const std::function<void()>& part);

} // namespace stowline::test
