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

/// Makes these system calls end the process that makes them, this one and its later children.
[[nodiscard]] std::optional<std::string> endAtSystemCalls(const std::vector<long>& numbers);

/// Makes open calls refuse files without a name (O_TMPFILE), as some file systems do.
[[nodiscard]] std::optional<std::string> loseNamelessFiles();

/// Runs a part of a test in a process of its own, for what cannot be taken back. Where the part is
/// skipped (GTEST_SKIP), so is the test that calls.
/// @return whether it ended without a failed expectation, whose text is on standard error
[[nodiscard]] bool holdsInAProcessOfItsOwn(const std::function<void()>& part);

} // namespace stowline::test
