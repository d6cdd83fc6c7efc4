// What of the C library must work in the child of a fork at any moment.
#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/time/LocalClock.h"
#include "stowline/platform/time/LocalTime.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace stowline::platform {
namespace {

/// Both take the lock of the C library: what was written last is not asked for twice.
void tellLocalTime(int round)
{
    const Date moment{std::chrono::seconds(round)};
    (void)localTime(moment);
    (void)localClockText(moment);
}

/// Forks so often beside threads that ask for the local time all the time, and asks for it in each
/// child. @return whether each came to its end
bool doesLocalTimeWorkInChildren(int forks)
{
    std::atomic<bool> stop = false;
    std::vector<std::jthread> askers;
    for (int i = 0; i < 3; ++i) {
        askers.emplace_back([&stop] {
            for (int round = 0; !stop; ++round)
                tellLocalTime(round);
        });
    }
    int status = 0;
    for (int i = 0; i < forks && status == 0; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20); // one that hangs fails the test instead of hanging it
            tellLocalTime(-i);
            ::_exit(0);
        }
        if (::waitpid(child, &status, 0) != child)
            status = -1;
    }
    stop = true;
    return status == 0;
}

TEST(ForkSafety, LocalTimeWorksInAChildWhoeverAskedForItMeanwhile)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer's own allocator hangs in the child of a fork beside "
                    "threads that allocate. The other builds run this test.";
#endif
    for (int i = 0; i < 40; ++i) // the first fork of a process, which has not asked before
        ASSERT_TRUE(
            test::holdsInAProcessOfItsOwn([] { EXPECT_TRUE(doesLocalTimeWorkInChildren(1)); }));
    EXPECT_TRUE(doesLocalTimeWorkInChildren(500));
}

} // namespace
} // namespace stowline::platform
