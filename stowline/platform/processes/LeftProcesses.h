// What a child leaves running when it ends.
#pragma once

#include <set>
#include <sys/types.h>

namespace stowline::platform {

/// While it exists, what children of ours leave behind becomes ours in their place (a "child
/// subreaper", prctl(2)), so that it can be ended too. One at a time, and no other thread may start
/// a child meanwhile: it would be taken for one that was left.
class LeftProcesses {
public:
    LeftProcesses();
    LeftProcesses(const LeftProcesses&) = delete;
    LeftProcesses& operator=(const LeftProcesses&) = delete;
    /// What was not ended stays, as a child of ours.
    ~LeftProcesses();

    enum class Which {
        ofOurSession, ///< what made itself a session of its own, as a daemon does, goes on
        all
    };
    /// Ends by SIGKILL what was left since this exists, and what that leaves in turn, and collects
    /// it. What another user runs cannot be ended, and what hangs in the kernel is waited for two
    /// seconds.
    void end(Which which) const;

private:
    [[nodiscard]] bool endOnce(Which which) const;

    const bool wasOn_;
    const std::set<pid_t> earlier_;
};

} // namespace stowline::platform
