// Tests must not pass for want of what they try.
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

namespace stowline::test {
namespace {

TEST(ProcessOfItsOwn, HoldsWhenNothingFails)
{
    EXPECT_TRUE(holdsInAProcessOfItsOwn([] {}));
    EXPECT_FALSE(holdsInAProcessOfItsOwn([] { ADD_FAILURE(); }));
    EXPECT_FALSE(holdsInAProcessOfItsOwn([] { ::_exit(3); }));
    EXPECT_FALSE(holdsInAProcessOfItsOwn([] { ::alarm(1), ::pause(); }));
    EXPECT_FALSE(IsSkipped());
}

TEST(ProcessOfItsOwn, WhatIsSkippedThereIsNoSuccessHere)
{
    EXPECT_TRUE(holdsInAProcessOfItsOwn([] {
        (void)holdsInAProcessOfItsOwn([] { GTEST_SKIP(); });
        ::_exit(IsSkipped() ? EXIT_SUCCESS : EXIT_FAILURE);
    }));
}

TEST(SystemCallFilter, EndsWhoMakesACallOrSaysThatItIsMissing)
{
    EXPECT_FALSE(holdsInAProcessOfItsOwn([] {
        if (const auto missing = endAtSystemCalls({SYS_getppid}))
            GTEST_SKIP() << *missing;
        (void)::getppid();
    }));
    EXPECT_TRUE(holdsInAProcessOfItsOwn([] {
        if (const auto missing = loseSystemCalls({SYS_getppid}))
            GTEST_SKIP() << *missing;
        EXPECT_EQ(::syscall(SYS_getppid), -1);
    }));
}

} // namespace
} // namespace stowline::test
