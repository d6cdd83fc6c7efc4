// A helper program run once: bytes in by a file, bytes out by a pipe, then released and reaped.
#pragma once

#include "stowline/platform/values/Outcome.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::platform {

/// How a child ended. Where the host program ignores or collects the ends of its children itself,
/// the system forgets how: then it is not known, and nothing is guessed.
struct ChildExit {
    int status = 0; ///< exit status, or the number of the signal that ended it
    bool bySignal = false;
    bool isKnown = true;
    [[nodiscard]] bool isSuccess() const { return isKnown && !bySignal && status == 0; }
};

/// Why a child could not be started.
struct StartFailure {
    int systemError = 0; ///< an errno value
    /// A sentence for people that says what to do, and does not name the program.
    [[nodiscard]] std::string sentence() const;
};

/// One run of a child program that answers on its standard output and then waits to be released.
struct ChildRun {
    std::filesystem::path program; ///< absolute
    /// Content of an anonymous file that the child finds open; its only argument is "@/dev/fd/N".
    std::string_view input;
    /// Makes the release bytes of what was read.
    std::string (*releaseBytes)(std::string_view output) = nullptr;
    std::chrono::milliseconds limit{}; ///< after this the child is ended by SIGKILL
    std::size_t maximumOutputBytes = std::size_t(1) << 30; ///< one that writes more is ended
};

struct ChildAnswer {
    ChildExit exit = {};
    std::string output = {};
    bool endedByLimit = false;
    bool endedByStop = false; ///< this thread was asked to stop (StopRequest); maybe never started
    bool endedBySize = false; ///< it wrote more than allowed
};

/// Starts the child, reads its standard output to the end, writes the release bytes to its
/// standard input, waits until it exits and reaps it. A child whose time is over, that writes too
/// much, or whose caller is asked to stop, is ended by SIGKILL; after a request to stop none is
/// started.
///
/// The child inherits standard error, the input file and nothing else; its signal mask is empty and
/// its dispositions are the defaults. No signal reaches this process when the child dies early, and
/// none is sent to a process that is not the child, whatever the host program does with SIGCHLD and
/// wait(). Nothing of the child is left when this returns, or throws for want of memory. Any number
/// of threads may run children at once.
[[nodiscard]] Outcome<ChildAnswer, StartFailure> runChild(const ChildRun& run);

/// Runs a program with arguments (no shell), its standard input empty, and hands back what it wrote
/// to standard output. Standard error is inherited. Limit and stop as above.
[[nodiscard]] Outcome<ChildAnswer, StartFailure>
captureOutput(const std::vector<std::string>& command, std::chrono::milliseconds limit);

} // namespace stowline::platform
