#include "tests/support/PseudoTerminal.h"

#include <array>
#include <cstdlib>
#include <pty.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::test {

Talk talkOnTerminal(const ProgramRun& run, const std::string& prompt, const std::string& answer)
{
    return talkOnTerminal(run, {{prompt, answer}});
}

Talk talkOnTerminal(const ProgramRun& run, const std::vector<Exchange>& exchanges)
{
    std::vector<char*> words;
    for (const auto& word : run.words)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0)
        throw std::runtime_error("no pseudo-terminal");
    if (child == 0) {
        for (const auto& [name, value] : run.environment)
            ::setenv(name.c_str(), value.c_str(), 1);
        ::execv(words[0], words.data());
        ::_exit(127);
    }
    Talk talk;
    auto next = exchanges.begin();
    std::size_t unread = 0; // what was shown since the last answer
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t count = ::read(terminal, piece.data(), piece.size());
        if (count <= 0)
            break;
        talk.screen.append(piece.data(), static_cast<std::size_t>(count));
        if (next != exchanges.end() &&
            talk.screen.find(next->prompt, unread) != std::string::npos) {
            unread = talk.screen.size();
            const winsize size{.ws_row = 25, .ws_col = next->columns};
            if (next->columns != 0)
                (void)::ioctl(terminal, TIOCSWINSZ, &size);
            if (next->meanwhile)
                next->meanwhile();
            (void)!::write(terminal, next->answer.data(), next->answer.size());
            ++next;
        }
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    talk.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return talk;
}

} // namespace stowline::test
