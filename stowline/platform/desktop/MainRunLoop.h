// The run loop of the main thread, the one that GTK and Qt programs on the desktop already run.
#pragma once

#include <functional>

namespace stowline::platform {

/// A host without a run loop of its own calls run(); others just run theirs (GLib's default main
/// context).
class MainRunLoop {
public:
    MainRunLoop() = delete;

    /// Hands a task to the main thread's loop. Any thread; tasks run in the order handed over.
    static void perform(std::function<void()> task);

    /// Runs the loop on the calling thread until stop(). For programs that have no other loop.
    static void run();

    /// Ends run() after the task that is running. Any thread; also before run() has begun.
    static void stop();
};

} // namespace stowline::platform
