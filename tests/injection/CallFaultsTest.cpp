// SOAP calls while everything that can fail does, in the host program and in the helper.
#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/support/Helpers.h"
#include "tests/support/Program.h"
#include "tests/support/SoapAnswers.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

const std::vector<std::string> kCalled{"new",     "read",  "write",       "memfd_create",
                                       "pipe2",   "clone", "socket",      "socketpair",
                                       "connect", "send",  "getsockname", "getaddrinfo",
                                       "poll",    "fcntl", "lseek",       "pidfd_send_signal"};
const std::vector<std::string> kCalledWithNursery{
    "new",         "read",        "write",      "memfd_create", "pipe2", "clone",
    "socket",      "connect",     "socketpair", "send",         "recv",  "poll",
    "getsockname", "getaddrinfo", "sendmsg",    "setsockopt",   "open",  "stat",
    "fcntl",       "lseek",       "shutdown",   "pidfd_open"};
const std::vector<std::string> kCalledByHelper{
    "new",  "read",        "write",      "socket",     "socketpair", "connect", "send",
    "recv", "getsockname", "getsockopt", "setsockopt", "poll",       "open",    "fcntl"};
const std::vector<std::string> kCalledByNursery{
    "new",   "read",    "write",       "socket",      "socketpair", "connect", "send",
    "recv",  "recvmsg", "getsockname", "getsockopt",  "setsockopt", "poll",    "open",
    "fcntl", "fork",    "dup2",        "close_range", "pidfd_open", "lstat"};

/// A service in a process of its own, where nothing fails: it writes down whom each request names,
/// and answers with that name.
class EchoingService {
public:
    EchoingService()
    {
        std::array<int, 2> told{-1, -1};
        EXPECT_EQ(::pipe2(told.data(), O_CLOEXEC), 0);
        process_ = ::fork();
        if (process_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            serve(told[1]);
        }
        ::close(told[1]);
        EXPECT_EQ(::read(told[0], &port_, sizeof port_), ssize_t(sizeof port_));
        ::close(told[0]);
    }
    ~EchoingService()
    {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    EchoingService(const EchoingService&) = delete;
    EchoingService& operator=(const EchoingService&) = delete;

    [[nodiscard]] std::string url() const
    {
        return "http://127.0.0.1:" + std::to_string(port_) + "/";
    }

    /// The names of all requests so far, a line each.
    [[nodiscard]] std::string asked() const
    {
        return platform::readFile(folder_.path() / "asked").value_or("");
    }

private:
    [[noreturn]] void serve(int told) const
    {
        const FileDescriptor file(::open((folder_.path() / "asked").c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        const test::RawServer server([&](const std::string& request, const auto& connection) {
            const std::string name = tagged(request, "USERNAME");
            (void)!::write(file.number(), (name + "\n").data(), name.size() + 1);
            connection.send(test::soapAnswer("<AuthenticateResult>true</AuthenticateResult><name>" +
                                             name + "</name>"));
        });
        const int port = server.port();
        (void)!::write(told, &port, sizeof port);
        for (;;)
            ::pause();
    }

    static std::string tagged(const std::string& text, const std::string& tag)
    {
        const auto begin = text.find("<" + tag + ">") + tag.size() + 2;
        return text.substr(begin, text.find("</" + tag + ">") - begin);
    }

    using FileDescriptor = platform::FileDescriptor;
    const test::TemporaryFolder folder_;
    pid_t process_ = -1;
    int port_ = 0;
};

/// Those that are given up in the midst of their work end in their own time, and soon.
void awaitNoHelpers()
{
    while (!test::helpersOf(::getpid()).empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

/// Signs in, again and again, each time as somebody else.
class Calling {
public:
    ~Calling()
    {
        std::map<std::string, int> counts;
        std::istringstream lines(service_.asked());
        for (std::string name; std::getline(lines, name);)
            EXPECT_EQ(++counts[name], 1) << name << " was asked for again";
    }
    Calling() = default;
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;

    test::Path path()
    {
        return {[this] { run(); }, [this] { check(); },
                [this] {
                    run();
                    EXPECT_TRUE(result_) << (error_ ? error_->text() : "no error");
                    check();
                }};
    }

    void run()
    {
        error_.reset();
        result_ = WebServiceBroker::authenticateForUsername(name_, "secret words", &error_);
    }

    /// A whole answer, or none; an error is one of the layer's own. However it ended, the call was
    /// made once at most.
    void check()
    {
        if (result_) {
            EXPECT_EQ(platform::findText(*result_, "AuthenticateResult"), "true");
            EXPECT_EQ(platform::findText(*result_, "name"), name_);
            EXPECT_FALSE(error_);
        }
        EXPECT_TRUE(!error_ || error_->code == 200 || error_->code == 250) << error_->text();
        awaitNoHelpers();
        const auto asked = service_.asked();
        const auto first = asked.find(name_ + "\n");
        EXPECT_TRUE(!result_ || first != std::string::npos);
        EXPECT_TRUE(first == std::string::npos ||
                    asked.find(name_ + "\n", first + 1) == std::string::npos)
            << "the call was made twice";
        name_ = "u" + std::to_string(++number_) + ".";
    }

    [[nodiscard]] bool hasResult() const { return result_.has_value(); }

private:
    const EchoingService service_;
    const test::TestBundle bundle_{test::settingsWith(
        "Authenticate", test::methodEntry(service_.url(), {"USERNAME", "PASSWORD"}))};
    int number_ = 0;
    std::string name_ = "u0.";
    std::optional<Error> error_;
    std::optional<Dictionary> result_;
};

class CallFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(CallFaults, EndInAWholeAnswerOrNone)
{
    Calling calling;
    test::failInTurn(GetParam(), calling.path());
}

INSTANTIATE_TEST_SUITE_P(Functions, CallFaults, testing::ValuesIn(test::bothWays(kCalled)),
                         test::nameOf);

TEST(CallFaults, AreAllTried)
{
    Calling calling;
    EXPECT_EQ(test::unlisted(kCalled, calling.path()), std::vector<std::string>());
}

// ---- with a nursery, which each attempt begins anew ----

test::Path withNewNursery(Calling& calling)
{
    WebServiceBroker::useNursery(true);
    const test::Path path = calling.path();
    return {[path] {
                WebServiceBroker::useNursery(false);
                WebServiceBroker::useNursery(true);
                path.attempt();
            },
            path.check, path.works};
}

class NurseryCallFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(NurseryCallFaults, EndInAWholeAnswerOrNone)
{
    Calling calling;
    test::failInTurn(GetParam(), withNewNursery(calling));
}

INSTANTIATE_TEST_SUITE_P(Functions, NurseryCallFaults,
                         testing::ValuesIn(test::bothWays(kCalledWithNursery)), test::nameOf);

TEST(NurseryCallFaults, AreAllTried)
{
    Calling calling;
    EXPECT_EQ(test::unlisted(kCalledWithNursery, withNewNursery(calling)),
              std::vector<std::string>());
}

// ---- in the helper ----

/// Runs one call whose helper has something injected.
class HelperWith {
public:
    explicit HelperWith(const std::string& injection, const std::string& countFile = {})
    {
        // The sanitizer's library wants to be the first one, which it need not be for this.
        ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        ::setenv("LD_PRELOAD", STOWLINE_INJECTION_LIBRARY, 1);
        ::setenv("STOWLINE_INJECTION", injection.c_str(), 1);
        if (!countFile.empty())
            ::setenv("STOWLINE_INJECTION_COUNT", countFile.c_str(), 1);
    }
    ~HelperWith()
    {
        for (const char* name :
             {"ASAN_OPTIONS", "LD_PRELOAD", "STOWLINE_INJECTION", "STOWLINE_INJECTION_COUNT"})
            ::unsetenv(name);
    }
    HelperWith(const HelperWith&) = delete;
    HelperWith& operator=(const HelperWith&) = delete;
};

/// Gives up those that wait, and waits for their end.
void endNurseries()
{
    const auto waiting = test::nurseriesOf(::getpid());
    if (waiting.empty())
        return;
    WebServiceBroker::useNursery(false);
    WebServiceBroker::useNursery(true);
    std::ranges::for_each(waiting, test::awaitEnd);
}

/// How often the helper calls a function in an undisturbed call; a nursery and its child together.
std::size_t callsOfHelper(Calling& calling, const std::string& function)
{
    const test::TemporaryFolder folder;
    const std::string count = folder.path() / "count";
    {
        const HelperWith helper(function + ":1000000:once", count);
        calling.run();
    }
    EXPECT_TRUE(calling.hasResult());
    calling.check();
    endNurseries(); // which may do something after the call
    const std::string bytes = platform::readFile(count).value_or("");
    std::size_t most = 0;
    EXPECT_EQ(bytes.size(), sizeof most) << "the helper was not looked at";
    std::memcpy(&most, bytes.data(), std::min(bytes.size(), sizeof most));
    return most;
}

/// Lets each of the helper's calls of a function fail in turn.
void failInHelper(Calling& calling, const test::Failing& failing, std::size_t calls)
{
    const std::size_t step =
        std::getenv("STOWLINE_LONG_TESTS") ? 1 : std::max<std::size_t>(1, calls / 50);
    std::size_t withoutAnswer = 0;
    for (std::size_t call = 1; call <= calls && !testing::Test::HasFailure(); call += step) {
        SCOPED_TRACE("call " + std::to_string(call));
        {
            const HelperWith helper(failing.function + ":" + std::to_string(call) +
                                    (failing.isPersistent ? ":always" : ":once"));
            calling.run();
        }
        calling.check();
        withoutAnswer += calling.hasResult() ? 0 : 1;
        // A nursery that cannot fork is no reason for a call to fail.
        EXPECT_TRUE(calling.hasResult() || failing.function != "fork");
        calling.path().works();
    }
    std::cout << withoutAnswer << " of " << calls << " ended without an answer\n";
}

class HelperFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(HelperFaults, EndInAWholeAnswerOrNone)
{
    Calling calling;
    const std::size_t calls = callsOfHelper(calling, GetParam().function);
    ASSERT_GT(calls, 0U);
    failInHelper(calling, GetParam(), calls);
}

INSTANTIATE_TEST_SUITE_P(Functions, HelperFaults,
                         testing::ValuesIn(test::bothWays(kCalledByHelper)), test::nameOf);

/// What fails in a nursery or in the child that it forks.
class NurseryFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(NurseryFaults, EndInAWholeAnswerOrNone)
{
    constexpr std::size_t sometimes = 10; // who waits may have to look more often
    Calling calling;
    WebServiceBroker::useNursery(true);
    const std::size_t calls = callsOfHelper(calling, GetParam().function);
    ASSERT_GT(calls, 0U);
    failInHelper(calling, GetParam(), calls + sometimes);
}

INSTANTIATE_TEST_SUITE_P(Functions, NurseryFaults,
                         testing::ValuesIn(test::bothWays(kCalledByNursery)), test::nameOf);

/// The injectable functions that a helper calls and that are not listed.
std::vector<std::string> unlistedOfHelper(Calling& calling, const std::vector<std::string>& listed)
{
    std::vector<std::string> missing;
    for (const std::string& function : test::injectableFunctions()) {
        if (callsOfHelper(calling, function) > 0 &&
            std::ranges::find(listed, function) == listed.end())
            missing.push_back(function);
    }
    return missing;
}

TEST(HelperFaults, AreAllTried)
{
    Calling calling;
    EXPECT_EQ(unlistedOfHelper(calling, kCalledByHelper), std::vector<std::string>());
}

TEST(NurseryFaults, AreAllTried)
{
    Calling calling;
    WebServiceBroker::useNursery(true);
    EXPECT_EQ(unlistedOfHelper(calling, kCalledByNursery), std::vector<std::string>());
}

} // namespace
} // namespace stowline
