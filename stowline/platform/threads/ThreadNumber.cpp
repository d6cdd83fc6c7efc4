#include "stowline/platform/threads/ThreadNumber.h"

#include <atomic>
#include <pthread.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

/// Raised in the child of a fork, whose one thread has a new number.
std::atomic<unsigned> generation = 1;

} // namespace

std::uint32_t currentThreadNumber()
{
    static const int watched = ::pthread_atfork(nullptr, nullptr, [] { ++generation; });
    (void)watched;
    // Asking the kernel takes longer than the rest of making a log message: ask once a thread.
    thread_local unsigned askedIn = 0;
    thread_local std::uint32_t number = 0;
    const unsigned now = generation.load(std::memory_order_relaxed);
    if (askedIn != now) {
        number = static_cast<std::uint32_t>(::gettid());
        askedIn = now;
    }
    return number;
}

} // namespace stowline::platform
