// The other side: what a nursery does.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace stowline::platform {

/// What a program does as a nursery.
struct NurseryWork {
    /// Done once, before the first child: initialises what no child can do without. Must start no
    /// thread, open no connection and learn no secret.
    std::function<void()> prepare;
    /// What most children need, in a millisecond or two; done once, while nobody asks for a child
    /// or else when the first was begun. May be empty. The same rules hold.
    std::function<void()> prepareSoon = {};
    /// A piece of what children may need beside, in a fraction of a millisecond; done while nobody
    /// asks for a child, once one was asked for. May be empty. The same rules hold.
    /// @return whether there is more to do
    std::function<bool()> prepareMore = {};
    /// In each child: what the program does with the words that it would be started with.
    /// @return the exit status
    std::function<int(const std::vector<std::string>& words)> run;
    /// How long it waits for the next call.
    std::chrono::milliseconds idleLimit = std::chrono::minutes(1);
};

/// Whether the program was started as a nursery, which only runNurseryChild() does: by the words,
/// and by what lies open at their places.
[[nodiscard]] bool isNursery(const std::vector<std::string>& words);

/// Forks a child for each call until nobody can ask for one any more, or nobody did for that long;
/// kills what is left when its host's process has ended. In a process of one thread. The children
/// end with it.
///
/// A child has standard streams and request of its call and nothing else open, the dispositions
/// and mask of signals that the program started with, and randomness of its own, since the
/// libraries in use notice that they were forked.
/// @return the exit status
[[nodiscard]] int runNursery(const std::string& program, const NurseryWork& work);

} // namespace stowline::platform
