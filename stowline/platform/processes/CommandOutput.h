// A command that a user named, run for what it prints.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Runs a command and hands back what it wrote to standard output. Its words are told apart as a
/// shell does, by blanks, quotation marks and backslashes, and what a word "#..." begins is a
/// comment; but no shell has a hand in it: nothing is expanded. Its standard input is empty;
/// standard error is inherited.
/// @return absent when the line is not of that form (an unmatched quotation mark), the
///         program cannot be run, fails, or takes longer than the limit
[[nodiscard]] std::optional<std::string> outputOfCommand(const std::string& line,
                                                         std::chrono::milliseconds limit);

/// What keeps a line from being a command of that form, as a sentence without its full stop: an
/// unmatched quotation mark, a backslash at its end, no word at all. Empty when nothing does.
[[nodiscard]] std::string faultInCommand(const std::string& line);

/// What became of a command that was run for what it does.
struct CommandEnd {
    enum class Kind {
        success,
        malformed,  ///< faultInCommand() tells why
        notStarted, ///< `number` is the system's error
        failed,     ///< `number` is its exit status
        bySignal,   ///< `number` is the signal's
        timeOver,   ///< it took longer than the limit, and was ended
        stopped     ///< this thread was asked to stop (StopRequest), and it was ended
    };
    Kind kind = Kind::success;
    int number = 0;
};

/// Runs a command to its end, its line read as above. Its standard input is empty; what it writes,
/// to standard output too, goes to our standard error. What outlives its limit or a request to stop
/// is ended by SIGKILL, with all that it has started. What it leaves running when it ends by itself
/// is ended too, unless that made itself a session of its own, as a daemon does. One at a time, and
/// no other thread may start a child meanwhile.
/// @param variables "NAME=value", in its environment besides ours
[[nodiscard]] CommandEnd runCommand(const std::string& line,
                                    const std::vector<std::string>& variables,
                                    std::chrono::milliseconds limit);

} // namespace stowline::platform
#pragma GCC visibility pop
