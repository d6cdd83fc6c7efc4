// When a nursery serves calls, when another one is begun or none, and how long each lives.
#include "stowline/service/NurseryTest.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/BuildIdentity.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/SystemCallFilter.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::Caller;
using test::nursery;
using test::RawConnection;
using test::RawServer;
using test::signalOne;
using test::until;

TEST(Nursery, ServesCallAfterCallAndTheHostHasNoChildren)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    const int first = nursery();
    EXPECT_NE(first, 0);
    EXPECT_FALSE(test::hasChildren());
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), first);
    until([] { return test::helpersOf(::getpid()).empty(); }); // the last one goes after its call
    EXPECT_EQ(caller.aloneLines(), 0U);
}

TEST(Nursery, IsNotUsedWhenTurnedOff)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    WebServiceBroker::useNursery(false);
    EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), 0);
    WebServiceBroker::useNursery(true);
    EXPECT_TRUE(Caller::works());
    EXPECT_NE(nursery(), 0);
    WebServiceBroker::useNursery(false);
    until([] { return nursery() == 0; });
    EXPECT_TRUE(Caller::works());
}

TEST(Nursery, IsNotUsedUnlessAHostSaysSo)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TestBundle bundle(
        test::settingsWith("M", Dictionary{{"URL", server.url()}, {"namespace", "urn:t"}}));
    WebServiceBroker::beginNursery();
    EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), 0);
}

TEST(Nursery, BeginsBeforeTheFirstCallWhenAsked)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    WebServiceBroker::beginNursery();
    until([] { return nursery() != 0; }); // it shows its name a moment after it was started
    const int first = nursery();
    WebServiceBroker::beginNursery();
    EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), first);
}

TEST(Nursery, AProgramOfAnotherBuildIsStartedAloneWithOneLineInTheLog)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TemporaryFolder folder;
    const auto program = folder.path() / "WebServiceCaller";
    auto bytes = platform::readFile(test::builtProgram("WebServiceCaller")).value();
    const auto at = bytes.find(platform::buildIdentity());
    for (std::size_t next = at; next != std::string::npos;
         next = bytes.find(platform::buildIdentity(), next))
        bytes[next] = bytes[next] == '0' ? '1' : '0';
    folder.write("WebServiceCaller", bytes);
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    const Caller caller(server.url());
    platform::Bundle::useExecutable(folder.path() / "stowline");
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), 0);
    EXPECT_EQ(caller.aloneLines(), 1U);
    EXPECT_TRUE(caller.aloneLinesNameTheOperation());
}

TEST(Nursery, AnUpgradeUnderARunningHostIsNoticed)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TemporaryFolder folder;
    const auto program = folder.path() / "WebServiceCaller";
    std::filesystem::copy(test::builtProgram("WebServiceCaller"), program);
    const Caller caller(server.url());
    platform::Bundle::useExecutable(folder.path() / "stowline");
    ASSERT_TRUE(Caller::works());
    ASSERT_NE(nursery(), 0);
    const auto note = folder.path() / "upgraded";
    const auto upgrade =
        folder.write("new", "#!/bin/sh\necho \"$@\" >> " + note.string() + "\nexit 1\n");
    std::filesystem::permissions(upgrade, std::filesystem::perms::owner_all);
    std::filesystem::rename(upgrade, program);
    EXPECT_FALSE(Caller::works());
    EXPECT_EQ(platform::readFile(note), "@/dev/fd/3\n");
    until([] { return nursery() == 0; });
}

TEST(Nursery, AnotherVersionInTheDescriptionBesideTheProgramIsNoticed)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TemporaryFolder folder;
    std::filesystem::copy(test::builtProgram("WebServiceCaller"),
                          folder.path() / "WebServiceCaller");
    const auto describe = [&](const std::string& version) {
        folder.write("Info.plist", "<plist version=\"1.0\"><dict><key>CFBundleShortVersionString"
                                   "</key><string>" +
                                       version + "</string></dict></plist>");
    };
    describe("1.7");
    const Caller caller(server.url(), Dictionary{{"X-Own", "yes"}});
    platform::Bundle::useExecutable(folder.path() / "stowline");
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(Caller::works());
    EXPECT_NE(server.requests().back().find("User-Agent: Mac/1.7\r\n"), std::string::npos);
    const int first = nursery();
    ASSERT_NE(first, 0);
    describe("1.7.1");
    ASSERT_TRUE(Caller::works());
    EXPECT_NE(server.requests().back().find("User-Agent: Mac/1.7.1\r\n"), std::string::npos);
}

TEST(Nursery, AForkedHostBeginsItsOwnAndLeavesTheParentsAlone)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    const int parents = nursery();
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([parents] {
        EXPECT_TRUE(Caller::works());
        EXPECT_NE(nursery(), 0);
        EXPECT_NE(nursery(), parents);
        WebServiceBroker::useNursery(false);
    }));
    EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), parents);
}

TEST(Nursery, EndsWithItsHostHoweverThatEnds)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const Caller caller(silent.url());
    for (const bool isForked : {false, true}) {
        int told[2];
        ASSERT_EQ(::pipe(told), 0);
        const pid_t host = ::fork();
        if (host == 0) {
            std::thread([] { (void)Caller::works(); }).detach();
            until([] { return test::helpersOf(::getpid()).size() == 1; });
            const std::array<int, 2> ids{nursery(), test::helpersOf(::getpid()).front()};
            // What holds the host's descriptors must not keep the nursery.
            const pid_t heir = isForked ? ::fork() : -1;
            if (heir == 0) {
                ::sleep(600);
                std::_Exit(0);
            }
            (void)!::write(told[1], ids.data(), sizeof ids);
            (void)!::write(told[1], &heir, sizeof heir);
            ::pause();
        }
        std::array<int, 2> ids{};
        pid_t heir = -1;
        ASSERT_EQ(::read(told[0], ids.data(), sizeof ids), ssize_t(sizeof ids));
        ASSERT_EQ(::read(told[0], &heir, sizeof heir), ssize_t(sizeof heir));
        EXPECT_GT(ids[0], 0);
        signalOne(host, SIGKILL);
        for (const int id : ids)
            test::awaitEnd(id);
        EXPECT_EQ(::waitpid(host, nullptr, 0), host);
        if (heir > 0)
            signalOne(heir, SIGKILL);
        ::close(told[0]);
        ::close(told[1]);
    }
}

TEST(Nursery, OutlivesTheThreadThatBeganIt)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    std::thread([] { EXPECT_TRUE(Caller::works()); }).join();
    const int first = nursery();
    EXPECT_NE(first, 0);
    EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), first);
}

TEST(Nursery, IsGivenUpWhenAChildDiesByASignalAndTheCallIsNotRepeated)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const Caller caller(silent.url());
    const auto host = ::getpid();
    std::thread killer([&] {
        until([&] { return !silent.requests().empty(); });
        const auto helpers = test::helpersOf(host);
        ASSERT_EQ(helpers.size(), 1U);
        signalOne(helpers.front(), SIGSEGV);
    });
    EXPECT_FALSE(Caller::works());
    killer.join();
    EXPECT_EQ(silent.requests().size(), 1U);
    until([] { return nursery() == 0; });
}

TEST(Nursery, ACallIsNotRepeatedWhenTheNurseryItselfIsKilled)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const Caller caller(silent.url());
    const auto host = ::getpid();
    int helper = 0;
    std::thread killer([&] {
        until([&] { return !silent.requests().empty(); });
        helper = test::helpersOf(host).at(0);
        signalOne(nursery(), SIGKILL);
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Caller::works());
    killer.join();
    test::awaitEnd(helper);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s); // by itself it would end after 60
    EXPECT_EQ(silent.requests().size(), 1U);
}

/// Answers when it is told to.
class HoldingServer {
public:
    [[nodiscard]] std::string url() const { return server_.url(); }
    void awaitRequests(std::size_t count) const
    {
        until([&] { return server_.requests().size() == count; });
    }
    void answerAll() { mayAnswer_ = true; }
    [[nodiscard]] std::size_t requests() const { return server_.requests().size(); }

private:
    std::atomic<bool> mayAnswer_ = false;
    const RawServer server_{[this](const std::string&, const RawConnection& connection) {
        until([this] { return mayAnswer_.load(); });
        connection.send(test::soapAnswer("<a>x</a>"));
    }};
};

/// Calls that wait for their answers.
class CallsUnderWay {
public:
    /// Begins so many more, and waits until their requests are there.
    void begin(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            calling_.emplace_back([this] { answers_ += Caller::works() ? 1 : 0; });
        server_.awaitRequests(calling_.size());
    }
    /// Has them answered, and waits for their ends. @return how many had an answer
    int answered()
    {
        server_.answerAll();
        calling_.clear();
        return answers_;
    }
    [[nodiscard]] std::size_t requests() const { return server_.requests(); }

private:
    HoldingServer server_;
    const Caller caller_{server_.url()};
    std::atomic<int> answers_ = 0;
    std::vector<std::jthread> calling_;
};

TEST(Nursery, OtherCallsComeToTheirEndWhenItIsGivenUp)
{
    CallsUnderWay calls;
    calls.begin(2);
    const int first = nursery();
    const auto helpers = test::helpersOf(::getpid());
    ASSERT_EQ(helpers.size(), 2U);
    signalOne(helpers.front(), SIGSEGV);
    test::awaitEnd(helpers.front());
    // It is given up once the host knows: then another one is begun for another call.
    calls.begin(1);
    EXPECT_EQ(calls.answered(), 2);
    EXPECT_EQ(calls.requests(), 3U);
    test::awaitEnd(first);
}

TEST(Nursery, CallsUnderWayComeToTheirEndWhenItIsTurnedOff)
{
    CallsUnderWay calls;
    calls.begin(2);
    const int first = nursery();
    WebServiceBroker::useNursery(false);
    EXPECT_EQ(calls.answered(), 2);
    EXPECT_EQ(calls.requests(), 2U);
    test::awaitEnd(first);
}

TEST(Nursery, OneThatWasKilledBetweenCallsIsBegunAnew)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    for (int i = 0; i < 5; ++i) {
        const int old = nursery();
        ASSERT_NE(old, 0);
        signalOne(old, SIGKILL);
        EXPECT_TRUE(Caller::works()); // maybe before it is dead
        test::awaitEnd(old);
        EXPECT_TRUE(Caller::works());
    }
}

TEST(Nursery, OneThatDoesNotListenIsEndedAndItsCallStartedAlone)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    const int stuck = nursery();
    signalOne(stuck, SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Caller::works());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 60s); // the limit of a call is 75 s
    test::awaitEnd(stuck);
    EXPECT_EQ(server.requests().size(), 2U);
    EXPECT_EQ(caller.aloneLines(), 1U);
    EXPECT_TRUE(Caller::works());
    EXPECT_NE(nursery(), 0);
}

TEST(Nursery, OneThatIsStoppedWhileItsChildIsAtWorkCostsNoAnswerAndNoSecondRequest)
{
    int stuck = 0;
    const RawServer server([&](const std::string&, const RawConnection& connection) {
        if (stuck == 0) {
            // The nursery has told the host of its child by then, which cannot be seen from
            // outside; a child may be quicker than that on a busy machine.
            std::this_thread::sleep_for(1s);
            signalOne(stuck = nursery(), SIGSTOP);
        }
        connection.send(test::soapAnswer("<a>x</a>"));
    });
    const Caller caller(server.url());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Caller::works());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 60s);
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(caller.aloneLines(), 0U); // its child told of its own end
    EXPECT_TRUE(Caller::works());       // after a while in which nothing is heard of it
    test::awaitEnd(stuck);
    EXPECT_EQ(server.requests().size(), 2U);
    EXPECT_EQ(caller.aloneLines(), 1U);
}

TEST(Nursery, OneThatDoesNotListenIsEndedWithTheStoppedCall)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    const int stuck = nursery();
    signalOne(stuck, SIGSTOP);
    const StopRequest stop;
    const StopScope scope(stop);
    std::thread stopper([&] {
        std::this_thread::sleep_for(50ms);
        stop.request();
    });
    EXPECT_FALSE(Caller::works());
    stopper.join();
    test::awaitEnd(stuck);
}

TEST(Nursery, IsGivenUpAfterAThousandCalls)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    const int first = nursery();
    for (int i = 1; i < 999; ++i)
        ASSERT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), first);
    EXPECT_TRUE(Caller::works());
    EXPECT_TRUE(Caller::works());
    until([] { return test::nurseriesOf(::getpid()).size() == 1; });
    EXPECT_NE(nursery(), first);
}

TEST(Nursery, EndsAfterAMinuteWithoutCalls)
{
    if (!std::getenv("STOWLINE_LONG_TESTS"))
        GTEST_SKIP() << "Takes a minute; scripts/test --long runs it.";
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    const int first = nursery();
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(58s);
    EXPECT_EQ(nursery(), first);
    test::awaitEnd(first);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 80s);
    EXPECT_TRUE(Caller::works());
}

} // namespace
} // namespace stowline
