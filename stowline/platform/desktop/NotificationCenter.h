// Named notifications inside the process.
#pragma once

#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Posted by a host program right before it ends; the log dispatcher flushes on it.
inline constexpr const char* kApplicationWillTerminateNotification =
    "NSApplicationWillTerminateNotification";

struct Notification {
    std::string name;
    std::string sender; ///< empty when there is none
    Dictionary userInfo;
};

/// Hands notifications to observers, synchronously, on the posting thread, in the order in which
/// they came to observe. Any thread; observers may add and remove observers.
class NotificationCenter {
public:
    using Observer = std::function<void(const Notification&)>;
    using Token = std::uint64_t;

    /// The centre of the process. Never destroyed.
    static NotificationCenter& shared();

    /// @return a token to stop observing with.
    Token addObserver(std::string name, Observer observer);
    void removeObserver(Token token);
    void post(const Notification& notification);

private:
    struct Entry {
        Token token;
        std::string name;
        std::shared_ptr<const Observer> observer;
    };

    std::mutex mutex_;
    Token lastToken_ = 0;
    std::vector<Entry> entries_;
};

} // namespace stowline::platform
#pragma GCC visibility pop
