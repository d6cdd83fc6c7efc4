// Where no thread can be had.
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/threads/SerialQueue.h"
#include "stowline/platform/threads/Timer.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/injection/Injection.h"
#include "tests/support/DevServerProcess.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace stowline {
namespace {

using namespace std::chrono_literals;

/// While it lives no thread can be started.
class NoThreads {
public:
    NoThreads() { test::arm({"pthread_create", 1, true}); }
    ~NoThreads() { EXPECT_GT(test::disarm().failures, 0U); }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};

TEST(ThreadFaults, ALogLineIsDeliveredByTheCallersOwnThread)
{
    const NoThreads none;
    std::vector<std::shared_ptr<CountingLogger>> loggers;
    for (int i = 0; i < 3; ++i) {
        loggers.push_back(std::make_shared<CountingLogger>(CountingLogger::Keep::texts));
        DDLog::addLogger(loggers.back());
    }
    for (const bool asynchronous : {true, false})
        DDLog::log(asynchronous, 7, 4, 0, "F.cpp", "f", 1, "line");
    DDLog::flushLog();
    for (const auto& logger : loggers)
        EXPECT_EQ(logger->count(), 2U);
    DDLog::removeAllLoggers();
    for (const auto& logger : loggers)
        EXPECT_EQ(logger->removeCount(), 1U);
}

TEST(ThreadFaults, ASerialQueueGoesOn)
{
    std::vector<int> order;
    {
        platform::SerialQueue queue("q");
        const NoThreads none;
        queue.async([&] {
            order.push_back(1);
            queue.async([&] { order.push_back(3); });
            order.push_back(2);
        });
        queue.sync([&] {
            queue.async([&] { order.push_back(5); });
            order.push_back(4);
        });
        EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4, 5}));
    }
    platform::SerialQueue other("other");
    std::promise<std::thread::id> ranOn;
    other.async([&] { ranOn.set_value(std::this_thread::get_id()); });
    EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
}

TEST(ThreadFaults, AQueueMayBeDestroyedByATaskThatItsCallerRuns)
{
    const NoThreads none;
    auto queue = std::make_shared<platform::SerialQueue>("q");
    platform::SerialQueue* raw = queue.get();
    bool ran = false;
    raw->async([queue = std::move(queue), &ran]() mutable {
        queue.reset();
        ran = true;
    });
    EXPECT_TRUE(ran);
}

TEST(ThreadFaults, OneFailedStartDoesNotEndTheTimers)
{
    platform::SerialQueue queue("q");
    std::promise<void> first;
    std::promise<void> second;
    platform::Timer early(queue, [&] { first.set_value(); });
    {
        const NoThreads none;
        early.start(1ms);
    }
    platform::Timer late(queue, [&] { second.set_value(); });
    late.start(2ms);
    EXPECT_EQ(second.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_EQ(first.get_future().wait_for(20s), std::future_status::ready);
}

TEST(ThreadFaults, ATimerWithoutDescriptorWorksTheNextTime)
{
    platform::SerialQueue queue("q");
    std::promise<void> fired;
    platform::Timer timer(queue, [&] { fired.set_value(); });
    test::arm({"timerfd_create", 1, false});
    timer.start(1ms);
    EXPECT_EQ(test::disarm().failures, 1U);
    timer.start(1ms);
    EXPECT_EQ(fired.get_future().wait_for(20s), std::future_status::ready);
}

TEST(ThreadFaults, TheFirstCallOfAProcessIsMadeWithoutAThread)
{
    const test::DevServerProcess server;
    platform::Bundle::useFolder(server.bundle());
    platform::Bundle::useExecutable(test::builtProgram("stowline"));
    const auto logger = std::make_shared<CountingLogger>();
    std::optional<Error> error;
    bool account = false;
    {
        const NoThreads none;
        DDLog::addLogger(logger);
        account = WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "secret words", "a@b.c",
                                                              &error);
        DDLog::flushLog();
    }
    EXPECT_TRUE(account) << (error ? error->text() : "no error");
    EXPECT_GT(logger->count(), 0U);
    EXPECT_TRUE(WebServiceBroker::authenticateForUsername("ann", "secret words", &error));
}

} // namespace
} // namespace stowline
