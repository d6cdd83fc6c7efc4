// Names that the name service is slow to know.
#include "stowline/platform/network/HostFlags.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/SilentNames.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/syscall.h>
#include <thread>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

std::size_t threadCount()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

TEST(NameLookUp, IsWaitedForNoLongerThanItsLimit)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(hostFlags("slow.example", 200ms), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(NameLookUp, EndsSoonAfterARequestToStop)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    const StopRequest stop;
    const StopScope scope(stop);
    std::chrono::steady_clock::time_point asked;
    std::thread stopper([&] {
        EXPECT_TRUE(names.isAsked());
        asked = std::chrono::steady_clock::now();
        stop.request();
    });
    EXPECT_EQ(hostFlags("slow.example"), std::nullopt);
    const auto ended = std::chrono::steady_clock::now();
    stopper.join();
    EXPECT_LT(ended - asked, 15s); // by itself it would wait for 30
    while (names.isAsked(0ms)) {
    }
    EXPECT_EQ(hostFlags("slower.example"), std::nullopt);
    EXPECT_FALSE(names.isAsked(100ms)); // nothing is asked after the request
}

TEST(NameLookUp, OneThatHangsCostsOneThread)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    const std::size_t before = threadCount();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(hostFlags("slow.example", 20ms), std::nullopt);
    EXPECT_EQ(threadCount(), before + 1);
    EXPECT_EQ(hostFlags("slower.example", 20ms), std::nullopt);
    EXPECT_EQ(threadCount(), before + 2);
}

TEST(NameLookUp, OneThatHangsHoldsNoOther)
{
    const test::SilentNames names("files dns");
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    EXPECT_EQ(hostFlags("slow.example", 20ms), std::nullopt);
    EXPECT_EQ(hostFlags("named.example"), kHostReachable | kHostIsLocalAddress);
    EXPECT_EQ(hostFlags("named.example"), kHostReachable | kHostIsLocalAddress);
    EXPECT_EQ(hostFlags("localhost"), kHostReachable | kHostIsLocalAddress);
}

TEST(NameLookUp, AsksAnewEachTime)
{
    const test::SilentNames names("files");
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    EXPECT_EQ(hostFlags("late.example"), HostFlags(0));
    std::ofstream("/etc/hosts") << "127.0.0.1 late.example\n";
    EXPECT_EQ(hostFlags("late.example"), kHostReachable | kHostIsLocalAddress);
    std::ofstream("/etc/hosts") << "127.0.0.1 other.example\n";
    EXPECT_EQ(hostFlags("late.example"), HostFlags(0));
}

TEST(NameLookUp, TheChildOfAForkLooksUpAnew)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    EXPECT_EQ(hostFlags("slow.example", 100ms), std::nullopt);
    EXPECT_TRUE(names.isAsked());
    while (names.isAsked(100ms)) {
    }
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&names] {
        EXPECT_EQ(hostFlags("slow.example", 100ms), std::nullopt);
        EXPECT_TRUE(names.isAsked());
    }));
}

TEST(NameLookUp, WithoutAThreadTheCallerLooksUp)
{
    const test::SilentNames names("files");
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseSystemCalls({SYS_clone3, SYS_clone}))
            GTEST_SKIP() << *missing;
        EXPECT_THROW(std::thread([] {}), std::exception);
        EXPECT_EQ(hostFlags("named.example"), kHostReachable | kHostIsLocalAddress);
        EXPECT_EQ(hostFlags("unnamed.example"), HostFlags(0));
    }));
}

} // namespace
} // namespace stowline::platform
