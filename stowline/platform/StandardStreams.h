// The standard streams of a program that talks to its parent over pipes.
#pragma once

#include <string_view>

namespace stowline::platform {

/// One write call to standard output, begun anew only when a signal came before the first byte.
/// @return whether it took every byte.
[[nodiscard]] bool writeOnceToStandardOutput(std::string_view bytes);

/// After this the reader of standard output finds its end.
void closeStandardOutput();

/// Waits until the parent has written 4 bytes to standard input, or has closed it.
void awaitReleaseBytes();

} // namespace stowline::platform
