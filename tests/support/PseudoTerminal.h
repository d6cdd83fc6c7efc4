// Programs that talk to a person on a terminal.
#pragma once

#include "tests/support/Program.h"

namespace stowline::test {

struct Talk {
    int status = -1;
    std::string screen; ///< everything the terminal showed
};

/// Runs a program on a pseudo-terminal of its own; types an answer once it has shown a prompt.
[[nodiscard]] Talk talkOnTerminal(const ProgramRun& run, const std::string& prompt,
                                  const std::string& answer);

} // namespace stowline::test
