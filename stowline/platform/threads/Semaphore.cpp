#include "stowline/platform/threads/Semaphore.h"

#include <algorithm>

namespace stowline::platform {

/// Threads that find nothing to take wait until a quarter of the first count is there again: a
/// woken thread then takes many at once, instead of one for each change of threads. Everything
/// taken is given back in the end whoever waits, so the quarter is reached.
struct Semaphore::State {
    explicit State(long first) : wakeUpCount(std::max(1L, first / 4)), count(first) {}

    [[nodiscard]] bool tryTake()
    {
        long known = count.load();
        while (known > 0) {
            if (count.compare_exchange_weak(known, known - 1))
                return true;
        }
        return false;
    }

    const long wakeUpCount;
    // Apart from the rest: this line of memory goes back and forth between waiting and signalling
    // threads all the time.
    alignas(64) std::atomic<long> count;
    alignas(64) std::atomic<long> waiting = 0;
    std::mutex mutex;
    std::condition_variable wakeUp;
};

Semaphore::Semaphore(long count) : firstCount_(count), state_(std::make_unique<State>(count)) {}

Semaphore::~Semaphore() = default;

void Semaphore::wait()
{
    State& state = *state_;
    // Who comes while others wait waits too, or they might never get their turn.
    if (state.waiting.load() == 0 && state.tryTake())
        return;
    std::unique_lock lock(state.mutex);
    ++state.waiting;
    state.wakeUp.wait(lock, [&state] { return state.tryTake(); });
    --state.waiting;
}

void Semaphore::takeWithoutWaiting()
{
    --state_->count;
}

void Semaphore::signal()
{
    State& state = *state_;
    if (++state.count < state.wakeUpCount || state.waiting.load() == 0)
        return;
    {
        const std::lock_guard lock(state.mutex); // who is about to wait has looked or will see it
    }
    state.wakeUp.notify_all();
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
