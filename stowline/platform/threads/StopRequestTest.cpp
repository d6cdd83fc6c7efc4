#include "stowline/platform/threads/StopRequest.h"

#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>
#include <thread>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

TEST(StopRequest, WakesThoseWhoWait)
{
    const StopRequest stop;
    std::thread waiter([stop] { EXPECT_TRUE(stop.waitFor(1h)); });
    stop.request();
    waiter.join();
    EXPECT_TRUE(stop.isRequested());
}

TEST(StopRequest, AWaitEndsAtItsTime)
{
    const StopRequest stop;
    EXPECT_FALSE(stop.waitFor(1ms));
    EXPECT_FALSE(stop.waitFor(-1s));
    EXPECT_FALSE(stop.isRequested());
}

TEST(StopRequest, TheDescriptorBecomesReadableAndStaysSo)
{
    const StopRequest stop;
    pollfd event{stop.descriptor(), POLLIN, 0};
    ASSERT_EQ(::poll(&event, 1, 0), 0);
    stop.request();
    stop.request();
    EXPECT_EQ(::poll(&event, 1, 0), 1);
    EXPECT_EQ(::poll(&event, 1, 0), 1);
}

TEST(StopRequest, MayBeMadeInASignalHandler)
{
    static const StopRequest stop;
    const auto earlier = std::signal(SIGUSR1, [](int) { stop.request(); });
    std::raise(SIGUSR1);
    EXPECT_TRUE(stop.isRequested());
    std::signal(SIGUSR1, earlier);
}

TEST(StopScope, IsOfItsThreadAndNests)
{
    const StopRequest outer;
    const StopRequest inner;
    EXPECT_EQ(StopRequest::ofThisThread(), nullptr);
    {
        const StopScope scope(outer);
        {
            const StopScope nested(inner);
            EXPECT_EQ(StopRequest::ofThisThread(), &inner);
            std::thread([] { EXPECT_EQ(StopRequest::ofThisThread(), nullptr); }).join();
        }
        EXPECT_EQ(StopRequest::ofThisThread(), &outer);
    }
    EXPECT_EQ(StopRequest::ofThisThread(), nullptr);
}

} // namespace
} // namespace stowline::platform
