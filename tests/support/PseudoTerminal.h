// Programs that talk to a person on a terminal.
#pragma once

#include "tests/support/Program.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace stowline::test {

struct Talk {
    int status = -1;
    std::string screen; ///< everything the terminal showed
};

/// A prompt that is waited for, and what is typed then.
struct Exchange {
    std::string prompt;
    std::string answer;
    std::uint16_t columns = 0; ///< the terminal is made so wide before the answer; 0: it stays
    std::function<void()> meanwhile = {}; ///< done before the answer
};

/// Runs a program on a pseudo-terminal of its own; answers each prompt once it is shown, one after
/// the other.
[[nodiscard]] Talk talkOnTerminal(const ProgramRun& run, const std::vector<Exchange>& exchanges);
[[nodiscard]] Talk talkOnTerminal(const ProgramRun& run, const std::string& prompt,
                                  const std::string& answer);

} // namespace stowline::test
