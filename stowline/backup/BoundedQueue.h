// Handing work from one thread to several, never more than so much at a time.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

namespace stowline::backup {

/// A queue with a greatest length. Any thread.
template <class Work> class BoundedQueue {
public:
    explicit BoundedQueue(std::size_t atMost) : atMost_(atMost) {}

    /// Waits for room. @return false when it is closed: the work is not taken
    bool push(Work work)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isClosed_ || waiting_.size() < atMost_; });
        if (isClosed_)
            return false;
        waiting_.push_back(std::move(work));
        changed_.notify_all();
        return true;
    }

    /// Waits for work. @return absent when there will be none any more
    std::optional<Work> pop()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isEnded_ || isClosed_ || !waiting_.empty(); });
        if (isClosed_ || waiting_.empty())
            return std::nullopt;
        std::optional<Work> work(std::move(waiting_.front()));
        waiting_.pop_front();
        changed_.notify_all();
        return work;
    }

    /// No more work comes; what waits is still taken.
    void end()
    {
        const std::lock_guard lock(mutex_);
        isEnded_ = true;
        changed_.notify_all();
    }

    /// Nothing is taken any more; what waits is dropped.
    void close()
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = true;
        waiting_.clear();
        changed_.notify_all();
    }

private:
    const std::size_t atMost_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> waiting_;
    bool isEnded_ = false;
    bool isClosed_ = false;
};

} // namespace stowline::backup
