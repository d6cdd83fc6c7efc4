#include "stowline/platform/processes/DescriptorWait.h"

#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>

namespace stowline::platform {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// The longest wait at once; shorter where a request to stop has no descriptor to wait for.
constexpr milliseconds kStep{3'600'000};
constexpr milliseconds kLook{50};

} // namespace

WaitEnd awaitReadable(int descriptor, Clock::time_point deadline)
{
    const StopRequest* stop = StopRequest::ofThisThread();
    const int stopped = stop ? stop->descriptor() : -1;
    for (;;) {
        if (stop && stop->isRequested())
            return WaitEnd::stopped;
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        const milliseconds step =
            std::clamp(left, milliseconds(0), stop && stopped < 0 ? kLook : kStep);
        std::array<pollfd, 2> watched{pollfd{descriptor, POLLIN, 0}, pollfd{stopped, POLLIN, 0}};
        const int ready = ::poll(watched.data(), watched.size(), static_cast<int>(step.count()));
        if (ready < 0 && errno != EINTR)
            return WaitEnd::ready;
        if (ready > 0 && watched[1].revents == 0)
            return WaitEnd::ready;
        if (ready == 0 && left <= step)
            return WaitEnd::timeOver;
    }
}

} // namespace stowline::platform
