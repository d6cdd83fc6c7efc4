// What a program sets up with the system first: being asked to end, and being looked into.
#pragma once

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Keeps SIGINT, SIGTERM and, unless it is ignored (nohup), SIGHUP from ending the process, in the
/// calling thread and in those that it starts afterwards. First thing in main().
void holdTerminationSignals();

/// Waits until one of them comes. @return its number.
int awaitTerminationSignal();

/// A write beyond the size that a file may have here (ulimit -f) fails with EFBIG from now on; it
/// would else end the process (SIGXFSZ).
void outliveFileLimits();

/// Keeps the memory of this process out of core dumps, and from being read by other processes of
/// the same user, as a debugger's would. For programs that hold passwords. First thing in main().
void keepMemoryPrivate();

} // namespace stowline::platform
#pragma GCC visibility pop
