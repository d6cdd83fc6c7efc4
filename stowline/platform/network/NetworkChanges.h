// Being told when the machine's network changes.
#pragma once

#include <functional>

namespace stowline::platform {

/// Calls a function on the main run loop whenever the network's configuration changes (addresses,
/// routes, connectivity). The first call of observe() starts the watch, which lasts as long as the
/// process. Also keeps the captive-portal verdict of hostFlags() up to date.
class NetworkChanges {
public:
    NetworkChanges() = delete;

    /// Sets the one function that is called. Any thread.
    static void observe(std::function<void()> onChange);
};

} // namespace stowline::platform
