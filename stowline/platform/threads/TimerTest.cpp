#include "stowline/platform/threads/Timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <fstream>
#include <future>
#include <sched.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

/// Runs a function in the child of a fork. @return its result, or -1 when it did not come to it
template <class Function> int inChild(Function function)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20); // a child that hangs fails the test instead of hanging it
        ::_exit(function() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Whether a timer of the process's own clock fires.
bool aTimerFires()
{
    SerialQueue queue("q");
    std::promise<void> fired;
    Timer timer(queue, [&] { fired.set_value(); });
    timer.start(5ms);
    return fired.get_future().wait_for(10s) == std::future_status::ready;
}

TEST(Timer, FiresOnItsQueueWhenTheTimeHasCome)
{
    ManualTimerClock clock;
    SerialQueue queue("q");
    std::vector<std::string> labels;
    Timer timer(
        queue, [&] { labels.emplace_back(SerialQueue::currentLabel()); }, clock);
    timer.start(100ms);
    clock.advance(99ms);
    queue.sync([] {});
    EXPECT_TRUE(labels.empty());
    clock.advance(1ms);
    queue.sync([] {});
    EXPECT_EQ(labels, std::vector<std::string>{"q"});
    clock.advance(1000ms);
    queue.sync([] {});
    EXPECT_EQ(labels.size(), 1U);
}

TEST(Timer, RepeatsAtItsInterval)
{
    ManualTimerClock clock;
    SerialQueue queue("q");
    int fired = 0;
    Timer timer(
        queue, [&] { ++fired; }, clock);
    timer.start(10ms, 5ms);
    clock.advance(25ms);
    queue.sync([&] { EXPECT_EQ(fired, 4); });
    timer.start(100ms);
    clock.advance(99ms);
    queue.sync([&] { EXPECT_EQ(fired, 4); });
}

TEST(Timer, ASuspendedTimerFiresOnceWhenResumed)
{
    ManualTimerClock clock;
    SerialQueue queue("q");
    int fired = 0;
    Timer timer(
        queue, [&] { ++fired; }, clock);
    timer.start(1ms, 1ms);
    timer.suspend();
    clock.advance(10ms);
    queue.sync([&] { EXPECT_EQ(fired, 0); });
    timer.resume();
    queue.sync([&] { EXPECT_EQ(fired, 1); });
}

TEST(Timer, NeverFiresAfterCancel)
{
    ManualTimerClock clock;
    SerialQueue queue("q");
    int fired = 0;
    Timer timer(
        queue, [&] { ++fired; }, clock);
    timer.start(1ms);
    timer.cancel();
    clock.advance(10ms);
    timer.start(1ms);
    clock.advance(10ms);
    queue.sync([&] { EXPECT_EQ(fired, 0); });
}

TEST(Timer, FollowsTheSteadyClockOfTheProcess)
{
    EXPECT_TRUE(aTimerFires());
}

/// A machine that was suspended for a day: its two steady clocks differ by that.
TEST(Timer, TheTimeOfASuspensionCounts)
{
    if (::unshare(CLONE_NEWTIME) != 0)
        GTEST_SKIP() << "This user may not have a time of its own.";
    std::ofstream("/proc/self/timens_offsets") << "boottime 86400 0\n";
    EXPECT_EQ(inChild([] {
                  timespec unsuspended = {};
                  ::clock_gettime(CLOCK_MONOTONIC, &unsuspended);
                  const auto now = TimerClock::shared().now().time_since_epoch();
                  return now - std::chrono::seconds(unsuspended.tv_sec) > 86000s && aTimerFires();
              }),
              0);
}

TEST(Timer, WorksInTheChildOfAFork)
{
    ASSERT_TRUE(aTimerFires());
    EXPECT_EQ(inChild(aTimerFires), 0);
}

TEST(Timer, OfTheParentIsNotTakenForOneOfTheChild)
{
    SerialQueue queue("q");
    Timer ofTheParent(queue, [] {});
    ofTheParent.start(1h);
    EXPECT_EQ(inChild([&] {
                  std::promise<void> fired;
                  Timer own(queue, [&] { fired.set_value(); });
                  own.start(5ms);
                  ofTheParent.cancel();
                  return fired.get_future().wait_for(10s) == std::future_status::ready;
              }),
              0);
}

/// A timer is set all the time while the process forks; the child sets it too.
TEST(Timer, IsNeverLockedInTheChildOfAFork)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer's own allocator hangs in the child of a fork beside "
                    "threads that allocate. The other builds run this test.";
#endif
    SerialQueue queue("q");
    Timer timer(queue, [] {});
    std::atomic<bool> stop = false;
    std::thread setter([&] {
        while (!stop)
            timer.start(1h);
    });
    int failures = 0;
    for (int i = 0; i < 500; ++i) {
        failures += inChild([&] {
                        timer.start(1h);
                        return true;
                    }) == 0
                        ? 0
                        : 1;
        if (failures > 0)
            break;
    }
    stop = true;
    setter.join();
    EXPECT_EQ(failures, 0);
}

} // namespace
} // namespace stowline::platform
