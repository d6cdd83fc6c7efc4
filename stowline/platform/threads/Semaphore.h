// A counting semaphore that survives fork().
#pragma once

#include "stowline/platform/threads/ForkSafety.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace stowline::platform {

/// Any thread may wait and signal. An uncontended wait or signal is one atomic operation. In the
/// child of a fork the count starts again at its first value.
class Semaphore final : private ForkParticipant {
public:
    explicit Semaphore(long count);
    ~Semaphore() override;

    /// Takes one, waiting without limit until there is one.
    void wait();

    /// Takes one at once, also when there is none: the count is then short until it is given back.
    /// For callers that would otherwise wait for themselves.
    void takeWithoutWaiting();

    /// Gives some back. Waiting threads go on a millisecond later at most.
    void signal(long number = 1);

private:
    struct State;
    void beforeFork() override;
    void afterForkInParent() override;
    void afterForkInChild() override;

    long firstCount_;
    std::unique_ptr<State> state_;
    const ForkRegistration registration_{*this};
};

} // namespace stowline::platform
