// What must work in the child of a fork at any moment.
#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/time/LocalClock.h"
#include "stowline/platform/time/LocalTime.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace stowline::platform {
namespace {

/// Forks so often beside threads that do something all the time, and does it in each child.
/// @param work is given a number that is never the same twice in a row
/// @return whether each child came to its end
bool worksInChildren(int forks, const std::function<void(int)>& work)
{
    std::atomic<bool> stop = false;
    std::vector<std::jthread> others;
    for (int i = 0; i < 3; ++i) {
        others.emplace_back([&] {
            for (int round = 0; !stop; ++round)
                work(round);
        });
    }
    int status = 0;
    for (int i = 0; i < forks && status == 0; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20); // one that hangs fails the test instead of hanging it
            work(-i);
            ::_exit(0);
        }
        if (::waitpid(child, &status, 0) != child)
            status = -1;
    }
    stop = true;
    return status == 0;
}

class ForkSafety : public testing::Test {
protected:
    void SetUp() override
    {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "The address sanitizer's own allocator hangs in the child of a fork beside "
                        "threads that allocate. The other builds run this test.";
#endif
    }
};

TEST_F(ForkSafety, LocalTimeWorksInAChildWhoeverAskedForItMeanwhile)
{
    const auto tell = [](int round) { // of which nothing is known from the time before
        const Date moment{std::chrono::seconds(round)};
        (void)localTime(moment);
        (void)localClockText(moment);
    };
    for (int i = 0; i < 40; ++i) // the first fork of a process, which has not asked before
        ASSERT_TRUE(test::holdsInAProcessOfItsOwn([&] { EXPECT_TRUE(worksInChildren(1, tell)); }));
    EXPECT_TRUE(worksInChildren(500, tell));
}

TEST_F(ForkSafety, TheConsoleLogWorksInAChildWhoeverWroteToItMeanwhile)
{
    std::atomic<int> lines = 0;
    setConsoleLogSink([&lines](std::string_view) { ++lines; });
    EXPECT_TRUE(
        worksInChildren(500, [](int round) { consoleLog("line " + std::to_string(round)); }));
    setConsoleLogSink({});
    EXPECT_GT(lines, 0);
}

} // namespace
} // namespace stowline::platform
