// What the service does by itself now and then.
#pragma once

#include "devserver/Storage.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace stowline::devserver {

/// Drops abandoned parts, and what was deleted once its days of grace are over, and notes what
/// accounts hold, at once and every hour after, in a thread of its own, until it ends. The storage
/// must outlive it.
class Housekeeping {
public:
    explicit Housekeeping(Storage& storage);
    ~Housekeeping();
    Housekeeping(const Housekeeping&) = delete;
    Housekeeping& operator=(const Housekeeping&) = delete;

private:
    void work();

    Storage& storage_;
    std::mutex mutex_;
    std::condition_variable ending_;
    bool isEnding_ = false;
    std::thread worker_; ///< last: it begins when all else is there
};

} // namespace stowline::devserver
