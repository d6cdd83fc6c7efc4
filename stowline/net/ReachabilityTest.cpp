#include "stowline/net/Reachability.h"

#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/net/ReachabilityTarget.h"
#include "stowline/platform/desktop/MainRunLoop.h"
#include "stowline/platform/desktop/NotificationCenter.h"
#include "stowline/platform/threads/Timer.h"
#include "tests/support/NetworkNamespace.h"

#include <gtest/gtest.h>

#include <fstream>

#include <thread>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using platform::MainRunLoop;
using platform::Notification;
using platform::NotificationCenter;

std::shared_ptr<CountingLogger> addedLogger()
{
    auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    return logger;
}

/// A target that a test holds the strings of.
class FakeTarget final : public ReachabilityTarget {
public:
    struct Strings {
        std::optional<platform::HostFlags> flags = platform::kHostReachable;
        bool takesCallback = true;
        bool canBeScheduled = true;
        int made = 0;
        int alive = 0;
        int scheduled = 0;
        Callback callback;
    };
    explicit FakeTarget(Strings& strings) : strings_(strings)
    {
        ++strings_.made;
        ++strings_.alive;
    }
    ~FakeTarget() override { --strings_.alive; }
    std::optional<platform::HostFlags> flags() override { return strings_.flags; }
    bool setCallback(Callback callback) override
    {
        strings_.callback = std::move(callback);
        return strings_.takesCallback;
    }
    bool scheduleWithMainRunLoop() override
    {
        strings_.scheduled += strings_.canBeScheduled ? 1 : 0;
        return strings_.canBeScheduled;
    }
    void unscheduleFromMainRunLoop() override { --strings_.scheduled; }

private:
    Strings& strings_;
};

void useFake(FakeTarget::Strings& strings)
{
    setReachabilityTargetFactory(
        [&](const std::string&) { return std::make_unique<FakeTarget>(strings); });
}

TEST(ReachabilityVerdict, FollowsTheFlags)
{
    EXPECT_TRUE(Reachability::isReachableWithFlags(2));
    EXPECT_TRUE(Reachability::isReachableWithFlags(34));    // connection on demand
    EXPECT_TRUE(Reachability::isReachableWithFlags(65547)); // transient, on traffic, local
    EXPECT_FALSE(Reachability::isReachableWithFlags(6));    // connection required
    EXPECT_FALSE(Reachability::isReachableWithFlags(18));   // intervention required
    EXPECT_FALSE(Reachability::isReachableWithFlags(0));
    EXPECT_FALSE(Reachability::isReachableWithFlags(33));
}

TEST(Reachability, AbsentNamesAreUnreachableWithoutALine)
{
    const auto logger = addedLogger();
    EXPECT_FALSE(Reachability::isHostReachable(std::nullopt));
    EXPECT_FALSE(Reachability::addHostForReachabilityObservation(std::nullopt));
    DDLog::flushLog();
    EXPECT_EQ(logger->count(), 0U);
}

TEST(Reachability, NamesThatAreNoHostNamesAreLogged)
{
    const auto logger = addedLogger();
    for (const char* name : {"", "two words", "http://host/"}) {
        EXPECT_FALSE(Reachability::isHostReachable(name));
        EXPECT_FALSE(Reachability::addHostForReachabilityObservation(name));
        EXPECT_TRUE(
            logger->hasLine("Unable to create reachability object for host " + std::string(name)));
    }
    EXPECT_EQ(logger->count(), 6U);
    EXPECT_EQ(logger->lines().at(0).flag, kLogFlagError);
    EXPECT_EQ(logger->lines().at(0).function, "isHostReachable");
    EXPECT_EQ(logger->lines().at(1).function, "addHostForReachabilityObservation");
}

TEST(Reachability, AFailedFlagReadIsUnreachable)
{
    FakeTarget::Strings strings{.flags = std::nullopt};
    useFake(strings);
    EXPECT_FALSE(Reachability::isHostReachable("host"));
    EXPECT_EQ(strings.alive, 0);
}

TEST(Reachability, LoopbackIsReachable)
{
    EXPECT_TRUE(Reachability::isHostReachable("127.0.0.1"));
    EXPECT_TRUE(Reachability::isHostReachable("localhost"));
    EXPECT_FALSE(Reachability::isHostReachable("no-such-host.invalid"));
}

TEST(Reachability, AddingTwiceObservesOnceAndOneRemovalEndsIt)
{
    FakeTarget::Strings strings;
    useFake(strings);
    EXPECT_TRUE(Reachability::addHostForReachabilityObservation("host"));
    EXPECT_TRUE(Reachability::addHostForReachabilityObservation("host"));
    EXPECT_EQ(strings.made, 1);
    EXPECT_EQ(strings.scheduled, 1);
    EXPECT_TRUE(Reachability::isHostReachable("host")); // asks anew all the same
    EXPECT_EQ(strings.made, 2);
    Reachability::removeHostFromReachabilityObservation("host");
    EXPECT_EQ(strings.scheduled, 0);
    EXPECT_EQ(strings.alive, 0);
}

TEST(Reachability, RemovingAnUnknownHostIsHarmless)
{
    Reachability::removeHostFromReachabilityObservation("never added");
    FakeTarget::Strings strings;
    useFake(strings);
    EXPECT_TRUE(Reachability::addHostForReachabilityObservation("host"));
    Reachability::removeHostFromReachabilityObservation("never added");
    EXPECT_EQ(strings.alive, 1);
}

TEST(Reachability, AFailedAddIsLoggedAndCanBeTriedAgain)
{
    const auto logger = addedLogger();
    FakeTarget::Strings strings{.takesCallback = false};
    useFake(strings);
    EXPECT_FALSE(Reachability::addHostForReachabilityObservation("h"));
    EXPECT_TRUE(logger->hasLine("Unable to set reachability callback for host h"));
    strings.takesCallback = true;
    strings.canBeScheduled = false;
    EXPECT_FALSE(Reachability::addHostForReachabilityObservation("h"));
    EXPECT_TRUE(logger->hasLine("Unable to schedule reachability with main run loop for host h"));
    EXPECT_EQ(strings.alive, 0);
    strings.canBeScheduled = true;
    EXPECT_TRUE(Reachability::addHostForReachabilityObservation("h"));
}

TEST(Reachability, PostsOnEveryChangeOfFlags)
{
    FakeTarget::Strings strings;
    useFake(strings);
    ASSERT_TRUE(Reachability::addHostForReachabilityObservation("host"));
    std::vector<Notification> seen;
    NotificationCenter::shared().addObserver("kHostReachabilityDidChangeNotification",
                                             [&](const Notification& n) { seen.push_back(n); });
    for (const platform::HostFlags flags : {2U, 34U, 6U})
        strings.callback(flags);
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].sender, "host");
    EXPECT_EQ(seen[0].userInfo, (Dictionary{{"isReachable", true}}));
    EXPECT_EQ(seen[1].userInfo, (Dictionary{{"isReachable", true}}));
    EXPECT_EQ(seen[2].userInfo, (Dictionary{{"isReachable", false}}));
}

// ---- with real networks ----

TEST(ReachabilityInANamespace, WithoutRoutesNothingIsReachable)
{
    if (const auto reason = test::enterNetworkNamespace())
        GTEST_SKIP() << *reason;
    EXPECT_FALSE(Reachability::isHostReachable("127.0.0.1")); // loopback is down
    EXPECT_FALSE(Reachability::isHostReachable("192.0.2.1"));
    test::ip("link set lo up");
    EXPECT_TRUE(Reachability::isHostReachable("127.0.0.1"));
    EXPECT_FALSE(Reachability::isHostReachable("192.0.2.1"));
}

TEST(ReachabilityInANamespace, FollowsTheKernelsRoutes)
{
    if (const auto reason = test::enterNetworkNamespace())
        GTEST_SKIP() << *reason;
    test::ip("link add wan0 type veth peer name wan1");
    test::ip("link set wan1 up");
    test::ip("addr add 192.0.2.10/24 dev wan0");
    test::ip("link set wan0 up");
    EXPECT_TRUE(Reachability::isHostReachable("192.0.2.1"));
    EXPECT_FALSE(Reachability::isHostReachable("198.51.100.1"));
    test::ip("route add default via 192.0.2.1");
    EXPECT_TRUE(Reachability::isHostReachable("198.51.100.1"));
    test::ip("route add unreachable 198.51.100.0/24");
    EXPECT_FALSE(Reachability::isHostReachable("198.51.100.1"));
}

/// A link that comes up and goes down, with IPv6 or without.
void expectObservationOfALink()
{
    test::ip("link set lo up");
    test::ip("link add wan0 type veth peer name wan1");
    test::ip("link set wan1 up");
    test::ip("addr add 192.0.2.10/24 dev wan0");
    const auto mainThread = std::this_thread::get_id();
    std::vector<bool> seen;
    NotificationCenter::shared().addObserver(
        kHostReachabilityDidChangeNotification, [&](const Notification& n) {
            EXPECT_EQ(std::this_thread::get_id(), mainThread);
            EXPECT_EQ(n.sender, "192.0.2.1");
            seen.push_back(*platform::find(n.userInfo, "isReachable")->boolean());
            if (seen.size() == 1)
                test::ip("link set wan0 down");
            else
                MainRunLoop::stop();
        });
    ASSERT_TRUE(Reachability::addHostForReachabilityObservation("192.0.2.1"));
    ASSERT_TRUE(Reachability::addHostForReachabilityObservation("127.0.0.1")); // never changes
    // The first look must be over before the route comes, or there is no change to tell of.
    platform::SerialQueue queue("test");
    platform::Timer connect(queue, [] { test::ip("link set wan0 up"); });
    connect.start(1500ms);
    platform::Timer giveUp(queue, [] { MainRunLoop::stop(); });
    giveUp.start(60s);
    MainRunLoop::run();
    EXPECT_EQ(seen, (std::vector<bool>{true, false}));
    Reachability::removeHostFromReachabilityObservation("192.0.2.1");
    Reachability::removeHostFromReachabilityObservation("127.0.0.1");
}

TEST(ReachabilityInANamespace, ObservationPostsOnTheMainRunLoopWhenRoutesChange)
{
    if (const auto reason = test::enterNetworkNamespace())
        GTEST_SKIP() << *reason;
    expectObservationOfALink();
}

TEST(ReachabilityInANamespace, ObservationSeesALinkThatHasIPv4Alone)
{
    if (const auto reason = test::enterNetworkNamespace())
        GTEST_SKIP() << *reason;
    for (const char* which : {"all", "default"}) {
        std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + which + "/disable_ipv6") << "1";
    }
    expectObservationOfALink();
}

} // namespace
} // namespace stowline
