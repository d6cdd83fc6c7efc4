// What a helper program does that serves one parent and talks to it over pipes.
#pragma once

#include <cstddef>
#include <string_view>

namespace stowline::platform {

/// Environment variable in which runChild() tells a child who started it.
inline constexpr const char* kParentVariable = "STOWLINE_PARENT";

/// Ends this process (SIGKILL) when the thread that started it ends, however that happens; at once
/// when the process that the environment names as the parent is gone already. For a helper whose
/// work is of no use to anybody else.
void endWithParent();

/// Bounds the address space of this process: beyond it there is no memory (std::bad_alloc). Does
/// nothing in builds with a sanitizer, which take address space for themselves.
void boundMemory(std::size_t bytes);

/// One write call to standard output, begun anew only when a signal came before the first byte.
/// @return whether it took every byte.
[[nodiscard]] bool writeOnceToStandardOutput(std::string_view bytes);

/// After this the reader of standard output finds its end.
void closeStandardOutput();

/// Waits until the parent has written to standard input (4 bytes as a rule; a short read counts
/// too), or has closed it.
void awaitReleaseBytes();

} // namespace stowline::platform
