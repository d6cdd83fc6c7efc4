#include "stowline/platform/Semaphore.h"

namespace stowline::platform {

/// The count goes below zero by one for each waiting thread; only then is the lock used.
struct Semaphore::State {
    explicit State(long first) : count(first) {}
    std::atomic<long> count;
    std::mutex mutex;
    std::condition_variable wakeUp;
    long wakeUpsDue = 0;
};

Semaphore::Semaphore(long count) : firstCount_(count), state_(std::make_unique<State>(count)) {}

Semaphore::~Semaphore() = default;

void Semaphore::wait()
{
    if (state_->count.fetch_sub(1, std::memory_order_acquire) > 0)
        return;
    std::unique_lock lock(state_->mutex);
    state_->wakeUp.wait(lock, [this] { return state_->wakeUpsDue > 0; });
    --state_->wakeUpsDue;
}

void Semaphore::takeWithoutWaiting()
{
    // A count below zero means waiting threads, so one that cannot wait leaves the count alone
    // when there is nothing to take, and pays with a wake-up that its signal will not give.
    State& state = *state_;
    long count = state.count.load(std::memory_order_relaxed);
    while (count > 0) {
        if (state.count.compare_exchange_weak(count, count - 1, std::memory_order_acquire))
            return;
    }
    const std::lock_guard lock(state.mutex);
    state.count.fetch_sub(1, std::memory_order_acquire);
    --state.wakeUpsDue;
}

void Semaphore::signal()
{
    if (state_->count.fetch_add(1, std::memory_order_release) >= 0)
        return;
    {
        const std::lock_guard lock(state_->mutex);
        ++state_->wakeUpsDue;
    }
    state_->wakeUp.notify_one();
}

void Semaphore::beforeFork()
{
    state_->mutex.lock();
}

void Semaphore::afterForkInParent()
{
    state_->mutex.unlock();
}

void Semaphore::afterForkInChild()
{
    state_->mutex.unlock();
    keepForever(std::move(state_));
    state_ = std::make_unique<State>(firstCount_);
}

} // namespace stowline::platform
