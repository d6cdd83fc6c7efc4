// Children whose caller is asked to stop.
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/Program.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

std::chrono::steady_clock::duration timeOf(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - start;
}

/// Asks to stop as soon as this process has a child.
std::thread stopOnceThereIsAChild(const StopRequest& stop)
{
    return std::thread([stop] {
        while (!test::hasChildren())
            std::this_thread::yield();
        stop.request();
    });
}

TEST(StopChild, EndsAChildThatWritesNothing)
{
    const StopRequest stop;
    const StopScope scope(stop);
    std::thread stopper = stopOnceThereIsAChild(stop);
    Outcome<ChildAnswer, StartFailure> answer;
    EXPECT_LT(timeOf([&] { answer = captureOutput({"sleep", "600"}, 600s); }), 1500ms);
    stopper.join();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->endedByStop);
    EXPECT_FALSE(answer->endedByLimit);
    EXPECT_FALSE(answer->exit.isSuccess());
    EXPECT_FALSE(test::hasChildren());
}

TEST(StopChild, EndsAChildThatNeverStopsWriting)
{
    const StopRequest stop;
    const StopScope scope(stop);
    std::thread stopper = stopOnceThereIsAChild(stop);
    Outcome<ChildAnswer, StartFailure> answer;
    const std::vector<std::string> dripping{
        "sh", "-c", "while :; do echo; sleep 0.01; done"}; // always readable soon
    EXPECT_LT(timeOf([&] { answer = captureOutput(dripping, 600s); }), 1500ms);
    stopper.join();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->endedByStop);
    EXPECT_FALSE(test::hasChildren());
}

TEST(StopChild, EndsAChildThatDoesNotExit)
{
    const StopRequest stop;
    const StopScope scope(stop);
    std::thread stopper = stopOnceThereIsAChild(stop);
    Outcome<ChildAnswer, StartFailure> answer;
    EXPECT_LT(timeOf([&] {
                  answer = captureOutput({"sh", "-c", "exec 1>&-; exec sleep 600"}, 600s);
              }),
              1500ms);
    stopper.join();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->endedByStop);
    EXPECT_FALSE(test::hasChildren());
}

TEST(StopChild, NoneIsStartedAfterTheRequest)
{
    const StopRequest stop;
    const StopScope scope(stop);
    stop.request();
    const auto answer = captureOutput({"echo", "started"}, 60s);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->endedByStop);
    EXPECT_EQ(answer->output, "");
    const auto run = runChild({"/bin/echo", "", nullptr, 60s});
    ASSERT_TRUE(run);
    EXPECT_TRUE(run->endedByStop);
    EXPECT_EQ(run->output, "");
}

TEST(StopChild, ARequestOfAnotherThreadStopsNothing)
{
    const StopRequest stop;
    stop.request();
    const auto answer = captureOutput({"echo", "done"}, 60s);
    ASSERT_TRUE(answer);
    EXPECT_FALSE(answer->endedByStop);
    EXPECT_EQ(answer->output, "done\n");
}

} // namespace
} // namespace stowline::platform
