// Starting a program as a child whose end is known and that can be ended, surely and only it.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/processes/RunningChild.h"
#include "stowline/platform/values/Outcome.h"

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace stowline::platform {

/// A descriptor of ours, and the number under which the child finds it.
struct GivenDescriptor {
    int ours = -1; ///< -1: the child has none at that place
    int place = -1;
};

struct SpawnRequest {
    std::string program; ///< a path
    std::vector<std::string> arguments;
    /// In this order; none of ours may be the place of an earlier one. The child has no others.
    std::vector<GivenDescriptor> descriptors;
    /// "NAME=value", in the place of ours of that name.
    std::vector<std::string> variables = {};
};

/// A child that was started. Nothing of it is left after this: one whose end nobody awaited is
/// ended.
///
/// Its end is told by the kernel about this very process, also where the host program ignores or
/// collects the ends of children; and it is ended through a handle of the kernel's, never by its
/// number, which may be another's by then. For one thread.
class StartedChild final : public RunningChild {
public:
    StartedChild(pid_t id, FileDescriptor process, FileDescriptor lifeline, FileDescriptor owned);
    StartedChild(StartedChild&& other) noexcept;
    StartedChild& operator=(StartedChild&&) = delete;
    ~StartedChild() override;

    /// Where the system has no handle of a process nor signals of descriptors, nothing happens,
    /// and the child ends by itself.
    void end() const override;
    [[nodiscard]] WaitEnd awaitEnd(std::chrono::steady_clock::time_point deadline) override;
    [[nodiscard]] ChildExit reap() override;

private:
    [[nodiscard]] bool hasEnded() const;

    pid_t id_; ///< -1 when it has been reaped
    FileDescriptor process_;
    FileDescriptor lifeline_; ///< a byte written here ends the child
    FileDescriptor owned_;    ///< the other end, whose signals the child made its own
};

/// Starts a program: signal mask empty, dispositions the defaults, kParentVariable in its
/// environment. Any thread.
[[nodiscard]] Outcome<StartedChild, StartFailure> spawn(const SpawnRequest& request);

/// Starts a program that is nobody's child of ours: no wait() of this process finds it or its end,
/// and no SIGCHLD tells of it. Otherwise as spawn().
/// @return its number, which is another's once it has ended
[[nodiscard]] Outcome<pid_t, StartFailure> spawnOrphan(const SpawnRequest& request);

/// Where the search path leads for a command's name; the name itself when it holds a slash or is
/// found nowhere.
[[nodiscard]] std::string programOfCommand(const std::string& name);

} // namespace stowline::platform
