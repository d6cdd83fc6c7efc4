#include "tests/support/PseudoTerminal.h"

#include <array>
#include <cstdlib>
#include <pty.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::test {

Talk talkOnTerminal(const ProgramRun& run, const std::string& prompt, const std::string& answer)
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
    bool answered = false;
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t count = ::read(terminal, piece.data(), piece.size());
        if (count <= 0)
            break;
        talk.screen.append(piece.data(), static_cast<std::size_t>(count));
        if (!answered && talk.screen.find(prompt) != std::string::npos) {
            answered = true;
            (void)!::write(terminal, answer.data(), answer.size());
        }
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    talk.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return talk;
}

} // namespace stowline::test
