// Real programs, run by tests.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::test {

struct ProgramRun {
    std::vector<std::string> words;                      ///< program and arguments
    std::map<std::string, std::string> environment = {}; ///< added to the test's own
    std::string input = {};                              ///< given on standard input, then closed
};

struct ProgramResult {
    int status = -1; ///< exit status, or 1000 and the signal's number
    std::string output;
    std::string errors;
};

/// Runs a program to its end.
[[nodiscard]] ProgramResult runProgram(const ProgramRun& run);

/// A program that runs beside the test and is ended with it.
class BackgroundProgram {
public:
    explicit BackgroundProgram(const ProgramRun& run);
    ~BackgroundProgram();
    BackgroundProgram(const BackgroundProgram&) = delete;
    BackgroundProgram& operator=(const BackgroundProgram&) = delete;

    /// The next line of its standard output; absent at its end. Waits.
    [[nodiscard]] std::optional<std::string> readLine();

    /// Writes to its standard input, which stays open.
    void writeInput(std::string_view bytes) const;

    /// Closes its standard input.
    void closeInput();
    void signal(int number) const;

    /// Waits for its end and hands back what was not read yet. @return as ProgramResult
    ProgramResult wait();

    /// Waits until a helper program is at work for it, whoever is its parent (Helpers.h).
    /// @return the helper's process id
    [[nodiscard]] int awaitHelper() const;

    [[nodiscard]] int processId() const { return process_; }

    /// Whether it is still running.
    [[nodiscard]] bool isRunning();

private:
    int process_ = -1;
    int input_ = -1;
    int output_ = -1;
    int errors_ = -1;
    bool ended_ = false;
    int status_ = -1;
    std::string buffered_;
};

/// Waits until a process that is not a child of this one has ended.
void awaitEnd(int process);

/// Path of a program of the build.
[[nodiscard]] std::string builtProgram(std::string_view name);

/// Number of open descriptors of this process; of its children, reaped ones aside; whether it has
/// any.
[[nodiscard]] std::size_t openDescriptorCount();
[[nodiscard]] std::size_t childCount();
[[nodiscard]] bool hasChildren();

} // namespace stowline::test
