// The system's words for its error numbers.
#pragma once

#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// "No such file or directory", of an error number (errno). Any thread.
[[nodiscard]] std::string systemErrorText(int error);

} // namespace stowline::platform
#pragma GCC visibility pop
