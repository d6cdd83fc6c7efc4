// SOAP calls while everything that can fail does, in the host program and in the helper.
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/injection/FailingInTurn.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Helpers.h"

#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

const std::vector<std::string> kCalled{
    "new",     "read", "write",       "memfd_create", "pipe2", "clone", "socket", "socketpair",
    "connect", "send", "getsockname", "getaddrinfo",  "poll",  "fcntl", "lseek"};
const std::vector<std::string> kCalledWithNursery{
    "new",     "read",       "write", "memfd_create", "pipe2", "clone",       "socket",
    "connect", "socketpair", "send",  "recv",         "poll",  "getsockname", "getaddrinfo",
    "sendmsg", "setsockopt", "open",  "stat",         "fcntl", "lseek"};
const std::vector<std::string> kCalledByHelper{
    "new",  "read",        "write",      "lstat",      "socket", "socketpair", "connect", "send",
    "recv", "getsockname", "getsockopt", "setsockopt", "poll",   "open",       "fcntl"};

/// Signs in, again and again.
class Calling {
public:
    Calling()
    {
        platform::Bundle::useFolder(server_.bundle());
        platform::Bundle::useExecutable(test::builtProgram("stowline"));
        EXPECT_TRUE(WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "secret words",
                                                                "a@b.c", nullptr));
    }

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
        result_ = WebServiceBroker::authenticateForUsername("ann", "secret words", &error_);
    }

    /// A whole answer, or none; an error is one of the layer's own.
    void check()
    {
        if (result_) {
            EXPECT_EQ(platform::findText(*result_, "AuthenticateResult"), "true");
            EXPECT_EQ(platform::findText(*result_, "accountStatus"), "Active");
            EXPECT_FALSE(error_);
        }
        EXPECT_TRUE(!error_ || error_->code == 200 || error_->code == 250) << error_->text();
    }

    [[nodiscard]] bool hasResult() const { return result_.has_value(); }

private:
    const test::DevServerProcess server_;
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

/// Those that are given up in the midst of their work end in their own time, and soon.
void awaitNoHelpers()
{
    while (!test::helpersOf(::getpid()).empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

test::Path withNewNursery(Calling& calling)
{
    WebServiceBroker::useNursery(true);
    const test::Path path = calling.path();
    return {[path] {
                WebServiceBroker::useNursery(false);
                WebServiceBroker::useNursery(true);
                path.attempt();
            },
            [path] {
                path.check();
                awaitNoHelpers();
            },
            path.works};
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

/// How often the helper calls a function in an undisturbed call.
std::size_t callsOfHelper(Calling& calling, const std::string& function)
{
    const test::TemporaryFolder folder;
    const std::string count = folder.path() / "count";
    {
        const HelperWith helper(function + ":1000000:once", count);
        calling.run();
    }
    EXPECT_TRUE(calling.hasResult());
    const auto text = platform::readFile(count);
    EXPECT_TRUE(text) << "the helper was not looked at";
    return text ? std::stoul(*text) : 0;
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

/// What fails in a nursery or in the child that it forks: what a helper started alone calls, and
/// what a nursery calls besides.
class NurseryFaults : public testing::TestWithParam<test::Failing> {};

TEST_P(NurseryFaults, EndInAWholeAnswerOrNone)
{
    constexpr std::size_t ofNursery = 40;
    Calling calling;
    const std::size_t calls = callsOfHelper(calling, GetParam().function) + ofNursery;
    WebServiceBroker::useNursery(true);
    failInHelper(calling, GetParam(), calls);
    awaitNoHelpers();
}

INSTANTIATE_TEST_SUITE_P(Functions, NurseryFaults,
                         testing::ValuesIn(test::bothWays(
                             {"new", "read", "write", "lstat", "socket", "socketpair", "connect",
                              "send", "recv", "sendmsg", "recvmsg", "getsockname", "getsockopt",
                              "setsockopt", "poll", "open", "fcntl", "fork", "dup2"})),
                         test::nameOf);

TEST(HelperFaults, AreAllTried)
{
    Calling calling;
    std::vector<std::string> missing;
    for (const std::string& function : test::injectableFunctions()) {
        if (callsOfHelper(calling, function) > 0 &&
            std::find(kCalledByHelper.begin(), kCalledByHelper.end(), function) ==
                kCalledByHelper.end())
            missing.push_back(function);
    }
    EXPECT_EQ(missing, std::vector<std::string>());
}

} // namespace
} // namespace stowline
