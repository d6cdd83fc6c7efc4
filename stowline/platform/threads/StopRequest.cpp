#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace stowline::platform {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

thread_local const StopRequest* requestOfThisThread = nullptr;

/// How long to wait at once where no descriptor can be waited for.
constexpr milliseconds kLook{50};

} // namespace

struct StopRequest::State {
    State() : wakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~State()
    {
        if (wakeUp >= 0)
            ::close(wakeUp);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    std::atomic<bool> isRequested = false;
    const int wakeUp;
};

StopRequest::StopRequest() : state_(std::make_shared<State>()) {}

void StopRequest::request() const noexcept
{
    const int error = errno;
    state_->isRequested.store(true);
    const std::uint64_t one = 1;
    if (state_->wakeUp >= 0)
        (void)!::write(state_->wakeUp, &one, sizeof one);
    errno = error;
}

bool StopRequest::isRequested() const noexcept
{
    return state_->isRequested.load();
}

bool StopRequest::waitFor(steady_clock::duration atMost) const
{
    const auto end = steady_clock::now() + atMost;
    while (!isRequested()) {
        const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        if (left <= milliseconds::zero())
            break;
        // In steps, so that no wait is too long for poll(2).
        const milliseconds step = std::min<milliseconds>(left, std::chrono::hours(1));
        if (state_->wakeUp >= 0) {
            pollfd event{state_->wakeUp, POLLIN, 0};
            (void)::poll(&event, 1, static_cast<int>(step.count()));
        } else {
            std::this_thread::sleep_for(std::min(step, kLook));
        }
    }
    return isRequested();
}

int StopRequest::descriptor() const noexcept
{
    return state_->wakeUp;
}

const StopRequest* StopRequest::ofThisThread() noexcept
{
    return requestOfThisThread;
}

StopScope::StopScope(const StopRequest& request) noexcept : outer_(requestOfThisThread)
{
    requestOfThisThread = &request;
}

StopScope::~StopScope()
{
    requestOfThisThread = outer_;
}

} // namespace stowline::platform
