// Calls whose helper is stopped, cannot be started, or whose end nobody tells.
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/SilentNames.h"
#include "tests/support/SoapAnswers.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::RawConnection;
using test::RawServer;

Dictionary settingsFor(const std::string& url)
{
    return test::settingsWith("M", Dictionary{{"URL", url}, {"namespace", "urn:t"}});
}

std::optional<Value> call(ErrorSlot error = nullptr)
{
    return WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, error);
}

void untilOneRequest(const RawServer& server)
{
    while (server.requests().empty())
        std::this_thread::sleep_for(1ms);
}

TEST(StoppedCall, EndsSoonAndSaysSo)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const test::TestBundle bundle(settingsFor(silent.url()));
    const StopRequest stop;
    const StopScope scope(stop);
    std::chrono::steady_clock::time_point asked;
    std::thread stopper([&] {
        untilOneRequest(silent);
        asked = std::chrono::steady_clock::now();
        stop.request();
    });
    std::optional<Error> error;
    EXPECT_FALSE(call(&error));
    const auto ended = std::chrono::steady_clock::now();
    stopper.join();
    EXPECT_LT(ended - asked, 15s); // by itself it would wait for 60
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, FailureKind::stopped);
    EXPECT_FALSE(test::hasChildren());
}

TEST(StoppedCall, NothingIsSentAfterTheRequest)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TestBundle bundle(settingsFor(server.url()));
    const StopRequest stop;
    stop.request();
    const StopScope scope(stop);
    std::optional<Error> error;
    EXPECT_FALSE(call(&error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, FailureKind::stopped);
    EXPECT_TRUE(server.requests().empty());
}

/// Of a call, or of a posted template, in a process of its own: a look-up goes on for the next one.
void stopWhileTheReachabilityHostIsLookedUp(bool isTemplate)
{
    const test::SilentNames names;
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    const RawServer server(test::soapAnswer("<a>x</a>"));
    Dictionary settings =
        test::settingsWith("M", Dictionary{{"URL", server.url()}}, "slow.example");
    settings.emplace("Templates", Dictionary{{"T", Dictionary{{"URL", server.url()}}}});
    const test::TestBundle bundle(settings);
    const StopRequest stop;
    const StopScope scope(stop);
    std::chrono::steady_clock::time_point asked;
    std::thread stopper([&] {
        EXPECT_TRUE(names.isAsked());
        asked = std::chrono::steady_clock::now();
        stop.request();
    });
    const FailureWatch watch;
    EXPECT_FALSE(isTemplate
                     ? WebServiceBroker::sendTemplateRequestWithName("T", {}, "", {}).has_value()
                     : call().has_value());
    const auto ended = std::chrono::steady_clock::now();
    stopper.join();
    EXPECT_LT(ended - asked, 15s); // by itself it would wait for 30
    EXPECT_EQ(watch.kind(), FailureKind::stopped);
    EXPECT_TRUE(server.requests().empty());
}

TEST(StoppedCall, EndsWhileTheReachabilityHostIsLookedUp)
{
    stopWhileTheReachabilityHostIsLookedUp(false);
}

TEST(StoppedCall, EndsAsATemplateWhileTheReachabilityHostIsLookedUp)
{
    stopWhileTheReachabilityHostIsLookedUp(true);
}

TEST(UntoldEnd, AWholeAnswerCountsWhereTheHostIgnoresItsChildren)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TestBundle bundle(settingsFor(server.url()));
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        std::signal(SIGCHLD, SIG_IGN);
        const auto result = call();
        EXPECT_TRUE(result && valueAtKeyPath(*result, "a") == Value("x"));
    }));
}

TEST(UntoldEnd, AnAnswerThatIsCutNeverCounts)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TestBundle real(settingsFor(server.url()));
    const auto whole = platform::writeBinaryPropertyList(Dictionary{{"a", "x"}, {"b", "y"}});
    for (std::size_t length = 1; length < whole->size(); ++length) {
        const test::TemporaryFolder folder;
        const auto cut = folder.write("cut", whole->substr(0, length));
        const auto file =
            folder.write("WebServiceCaller", "#!/bin/sh\ncat " + cut.string() + "; exit 250\n");
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        const test::TestBundle bundle(settingsFor(server.url()), {}, folder.path());
        EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
            std::signal(SIGCHLD, SIG_IGN);
            EXPECT_FALSE(call());
        })) << length;
    }
}

TEST(HelperEnd, AWholeAnswerDoesNotCountWhenTheHelperSaysThatItFailed)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TemporaryFolder folder;
    const auto answer =
        folder.write("answer", platform::writeBinaryPropertyList(Dictionary{{"a", "x"}}).value());
    const auto status = folder.write("status", "");
    const auto file =
        folder.write("WebServiceCaller", "#!/bin/sh\ncat " + answer.string() + "; exit $(cat " +
                                             status.string() + ")\n");
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    const test::TestBundle bundle(settingsFor(server.url()), {}, folder.path());
    for (const auto& [ended, kind] :
         {std::pair("0", FailureKind::unspecified), std::pair("1", FailureKind::helperFailed),
          std::pair("250", FailureKind::helperFailed), std::pair("252", FailureKind::timeOut)}) {
        (void)folder.write("status", ended);
        const FailureWatch watch;
        EXPECT_EQ(call().has_value(), ended == std::string("0")) << ended;
        EXPECT_EQ(watch.kind(), kind) << ended;
    }
}

TEST(UntoldEnd, CallsWorkWithoutHandlesOfProcessesAndFilesInMemory)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const test::TestBundle bundle(settingsFor(server.url()));
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseProcessHandles())
            GTEST_SKIP() << *missing;
        if (const auto missing = test::loseSystemCalls(
                {SYS_pidfd_open, SYS_pidfd_send_signal, SYS_clone3, SYS_memfd_create}))
            GTEST_SKIP() << *missing;
        const auto result = call();
        EXPECT_TRUE(result && valueAtKeyPath(*result, "a") == Value("x"));
    }));
}

/// Calls with none to four descriptors free, each of which does its work or says what is wrong.
void callWithFewDescriptors()
{
    constexpr rlim_t most = 64;
    const rlimit few{most, most};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    std::vector<int> taken;
    for (int number = ::dup(0); number >= 0; number = ::dup(0))
        taken.push_back(number);
    for (int free = 0; free <= 4; ++free) {
        std::optional<Error> error;
        const auto result = call(&error);
        EXPECT_NE(result.has_value(), error.has_value()) << free;
        EXPECT_TRUE(!error || error->localizedDescription().find("Too many files are open") !=
                                  std::string::npos)
            << free << " " << error->localizedDescription();
        EXPECT_TRUE(!error || error->kind == FailureKind::helperFailed) << free;
        const FailureWatch watch;
        const auto text = WebServiceBroker::sendTemplateRequestWithName("T", {}, "", {});
        EXPECT_NE(text.has_value(), watch.failure().has_value()) << free;
        EXPECT_NE(watch.kind(), FailureKind::hostUnreachable) << free;
        ::close(taken.back());
        taken.pop_back();
    }
}

TEST(HelperStart, TooManyOpenFilesAreAnErrorWithTheCure)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The sanitizers need a descriptor of their own to look at memory.";
#endif
    const test::SilentNames names("files");
    if (names.missing())
        GTEST_SKIP() << *names.missing();
    const RawServer server(test::soapAnswer("<a>x</a>"));
    for (const char* host : {"127.0.0.1", "named.example"}) {
        Dictionary settings = test::settingsWith(
            "M", Dictionary{{"URL", server.url()}, {"namespace", "urn:t"}}, host);
        settings.emplace("Templates", Dictionary{{"T", Dictionary{{"URL", server.url()}}}});
        const test::TestBundle bundle(settings);
        EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
            EXPECT_TRUE(call()); // what is made once is made
            callWithFewDescriptors();
        })) << host;
    }
}

} // namespace
} // namespace stowline
