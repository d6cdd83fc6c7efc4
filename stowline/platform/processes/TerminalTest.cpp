#include "stowline/platform/processes/Terminal.h"

#include <gtest/gtest.h>

#include <array>
#include <poll.h>
#include <pty.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::platform {
namespace {

/// Asks once something waits to be read on the terminal. @return what the process ends with
int askOnceSomethingIsTyped()
{
    pollfd typed{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    if (::poll(&typed, 1, -1) != 1)
        return 2;
    return readLineFromTerminal("now? ") == "late" ? 0 : 1;
}

TEST(Terminal, WhatWasTypedBeforeTheQuestionIsNoAnswerToIt)
{
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0)
        ::_exit(askOnceSomethingIsTyped());
    const auto type = [terminal](std::string_view line) {
        ASSERT_EQ(::write(terminal, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    };
    type("early\n");
    std::string screen;
    std::array<char, 256> piece{};
    while (screen.find("now? ") == std::string::npos) {
        const ssize_t count = ::read(terminal, piece.data(), piece.size());
        ASSERT_GT(count, 0) << screen;
        screen.append(piece.data(), static_cast<std::size_t>(count));
    }
    type("late\n");
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ::close(terminal);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << screen;
}

} // namespace
} // namespace stowline::platform
