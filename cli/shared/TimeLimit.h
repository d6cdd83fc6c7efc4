// An end for calls that have none of their own.
#pragma once

#include "stowline/platform/threads/StopRequest.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace stowline::cli {

/// Stops the calls of this thread when the time is over, as long as it exists.
class TimeLimit {
public:
    explicit TimeLimit(std::chrono::duration<double> atMost)
        : scope_(over_), watcher_([this, atMost] {
              std::unique_lock lock(mutex_);
              if (!ended_.wait_for(lock, atMost, [this] { return isEnded_; }))
                  over_.request();
          })
    {
    }
    ~TimeLimit()
    {
        {
            const std::lock_guard lock(mutex_);
            isEnded_ = true;
        }
        ended_.notify_all();
        watcher_.join();
    }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

    [[nodiscard]] bool isOver() const { return over_.isRequested(); }

private:
    const StopRequest over_;
    const StopScope scope_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool isEnded_ = false;
    std::thread watcher_;
};

} // namespace stowline::cli
