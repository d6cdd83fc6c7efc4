// What a program sets up with the system first: being asked to end, and being looked into.
#pragma once

#include <cstddef>

namespace stowline::platform {

/// Keeps SIGINT, SIGTERM and, unless it is ignored (nohup), SIGHUP from ending the process, in the
/// calling thread and in those that it starts afterwards. First thing in main().
void holdTerminationSignals();

/// Waits until one of them comes. @return its number.
int awaitTerminationSignal();

/// A write beyond the size that a file may have here (ulimit -f) fails with EFBIG from now on; it
/// would else end the process (SIGXFSZ).
void outliveFileLimits();

/// Environment variable in which runChild() tells a child who started it.
inline constexpr const char* kParentVariable = "STOWLINE_PARENT";

/// Ends this process (SIGKILL) when the thread that started it ends, however that happens; at once
/// when the process that the environment names as the parent is gone already. For a helper whose
/// work is of no use to anybody else.
void endWithParent();

/// Keeps the memory of this process out of core dumps, and from being read by other processes of
/// the same user, as a debugger's would. For programs that hold passwords. First thing in main().
void keepMemoryPrivate();

/// Bounds the address space of this process: beyond it there is no memory (std::bad_alloc). Does
/// nothing in builds with a sanitizer, which take address space for themselves.
void boundMemory(std::size_t bytes);

} // namespace stowline::platform
