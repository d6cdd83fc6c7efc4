// The development service as a process beside the test.
#pragma once

#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

namespace stowline::test {

/// Starts stowline-devserver on a port of the system's choice and waits until it listens; fails the
/// test's set-up with an exception when it does not.
class DevServerProcess {
public:
    /// @param arguments further arguments (--fault …)
    /// @param data folder for the service's data; absent: one of its own
    explicit DevServerProcess(const std::vector<std::string>& arguments = {},
                              std::optional<std::filesystem::path> data = std::nullopt);

    [[nodiscard]] const std::string& address() const { return address_; }
    [[nodiscard]] std::filesystem::path bundle() const { return folder_.path() / "bundle"; }
    [[nodiscard]] std::filesystem::path data() const { return data_; }
    [[nodiscard]] BackgroundProgram& process() { return *process_; }

    /// Ends it without warning (SIGKILL), and starts it again on its data and its port.
    void killAndRestart();

private:
    void start(const std::vector<std::string>& arguments);

    TemporaryFolder folder_;
    std::filesystem::path data_;
    std::optional<BackgroundProgram> process_;
    std::string address_;
};

/// Content of a file of tests/wire/, and its part after the empty line.
[[nodiscard]] std::string wireCapture(const std::string& name);
[[nodiscard]] std::string wireBody(const std::string& name);

} // namespace stowline::test
