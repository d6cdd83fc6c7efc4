#include "stowline/platform/threads/Semaphore.h"

#include <algorithm>
#include <chrono>

namespace stowline::platform {

namespace {

/// How long a waiting thread sleeps before it looks by itself.
constexpr std::chrono::milliseconds kNap{1};

} // namespace

/// Threads that wait are woken when a quarter of the first count is there again: they then take
/// many at once, instead of one for each change of threads. Where less comes they find it after a
/// nap.
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
    while (!state.tryTake())
        state.wakeUp.wait_for(lock, kNap);
    --state.waiting;
}

void Semaphore::takeWithoutWaiting()
{
    --state_->count;
}

void Semaphore::signal(long number)
{
    State& state = *state_;
    if ((state.count += number) < state.wakeUpCount || state.waiting.load() == 0)
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
