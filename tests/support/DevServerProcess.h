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
    explicit DevServerProcess(const std::vector<std::string>& arguments = {});

    [[nodiscard]] const std::string& address() const { return address_; }
    [[nodiscard]] std::filesystem::path bundle() const { return folder_.path() / "bundle"; }
    [[nodiscard]] std::filesystem::path data() const { return folder_.path() / "data"; }
    [[nodiscard]] BackgroundProgram& process() { return process_; }

private:
    TemporaryFolder folder_;
    BackgroundProgram process_;
    std::string address_;
};

/// Content of a file of tests/wire/, and its part after the empty line.
[[nodiscard]] std::string wireCapture(const std::string& name);
[[nodiscard]] std::string wireBody(const std::string& name);

} // namespace stowline::test
