// The command as a user runs it, measured.
#pragma once

#include "tests/support/DevServerProcess.h"

#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

namespace stowline::bench {

struct Run {
    double wall = 0;
    double processor = 0; ///< of the program and of what it waited for
    long peakKb = 0;
    std::string output;
};

using Environment = std::vector<std::pair<std::string, std::string>>;

/// Runs a program to its end with its standard output read; throws unless it ends well.
[[nodiscard]] Run runMeasured(const std::vector<std::string>& words,
                              const Environment& environment = {});

[[nodiscard]] double processorSeconds(const rusage& usage);

/// What another process has used so far, with what it waited for (proc(5), "stat").
[[nodiscard]] double processorSecondsOf(int process);

/// The command's environment: a service's bundle, a home, and an account that signUp() opens.
[[nodiscard]] Environment commandEnvironment(const test::DevServerProcess& server,
                                             const test::TemporaryFolder& home);
void signUp(const test::DevServerProcess& server, const test::TemporaryFolder& home);

} // namespace stowline::bench
