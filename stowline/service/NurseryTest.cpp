// Calls whose helper is forked by a nursery: what differs from a helper started alone, and what
// must not.
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/BuildIdentity.h"
#include "stowline/platform/threads/StopRequest.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/Helpers.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/SoapAnswers.h"
#include "tests/support/SystemCallFilter.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <netinet/in.h>
#include <set>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::RawConnection;
using test::RawServer;

/// A bundle with one method "M", and calls of it.
class Caller {
public:
    explicit Caller(const std::string& url)
        : bundle_(
              test::settingsWith("M", Dictionary{{"URL", url},
                                                 {"namespace", "urn:t"},
                                                 {"soapParams", Array{test::named("p", "<<P>>")}}}))
    {
        DDLog::addLogger(logger_);
        WebServiceBroker::useNursery(true);
    }
    ~Caller()
    {
        DDLog::removeLogger(logger_);
        DDLog::flushLog();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    static bool works()
    {
        return WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}).has_value();
    }

    /// How many lines say that a helper was started alone.
    [[nodiscard]] std::size_t aloneLines() const
    {
        DDLog::flushLog();
        std::size_t count = 0;
        for (const auto& line : logger_->lines())
            count += line.text.starts_with("WebServiceCaller is started for a call of its own: ");
        return count;
    }

    const test::TestBundle& bundle() const { return bundle_; }

private:
    const test::TestBundle bundle_;
    const std::shared_ptr<CountingLogger> logger_ = std::make_shared<CountingLogger>();
};

/// Waits until something is so; the test's own limit is the end of patience.
void until(const std::function<bool()>& isSo)
{
    while (!isSo())
        std::this_thread::sleep_for(1ms);
}

/// Signals one process, and never a group of them.
void signalOne(int process, int number)
{
    ASSERT_GT(process, 0) << "there is none";
    EXPECT_EQ(::kill(process, number), 0);
}

/// The one nursery of this process; 0 when there is none.
int nursery()
{
    const auto all = test::nurseriesOf(::getpid());
    EXPECT_LE(all.size(), 1U);
    return all.empty() ? 0 : all.front();
}

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
    EXPECT_TRUE(test::helpersOf(::getpid()).empty()) << "children of the nursery are left";
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
    const int first = nursery();
    EXPECT_NE(first, 0);
    WebServiceBroker::beginNursery();
    EXPECT_TRUE(Caller::works());
    EXPECT_EQ(nursery(), first);
}

/// A change after which a child of the old nursery would not be what a helper started now is.
struct Change {
    const char* name;
    std::function<void(const Caller&)> make;
};

std::ostream& operator<<(std::ostream& stream, const Change& change)
{
    return stream << change.name;
}

class ChangedHost : public testing::TestWithParam<Change> {};

TEST_P(ChangedHost, BeginsAnotherNursery)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
        ASSERT_TRUE(Caller::works());
        const int first = nursery();
        ASSERT_NE(first, 0);
        GetParam().make(caller);
        EXPECT_TRUE(Caller::works());
        until([] { return test::nurseriesOf(::getpid()).size() == 1; });
        EXPECT_NE(nursery(), first);
    }));
}

void lowerLimit()
{
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_CORE, &limit), 0);
    limit.rlim_cur = limit.rlim_cur == 0 ? limit.rlim_max : 0;
    ASSERT_EQ(::setrlimit(RLIMIT_CORE, &limit), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, ChangedHost,
    testing::Values(Change{"Environment", [](const Caller&) { ::setenv("STOWLINE_TEST", "1", 1); }},
                    Change{"TimeZone", [](const Caller&) { ::setenv("TZ", "Asia/Tokyo", 1); }},
                    Change{"Locale", [](const Caller&) { ::setenv("LC_ALL", "C", 1); }},
                    Change{"Folder", [](const Caller&) { ASSERT_EQ(::chdir("/"), 0); }},
                    Change{"Umask", [](const Caller&) { ::umask(0123); }},
                    Change{"Limit", [](const Caller&) { lowerLimit(); }},
                    Change{"Niceness", [](const Caller&) { ASSERT_NE(::nice(1), -1); }},
                    Change{"Session", [](const Caller&) { ASSERT_GT(::setsid(), 0); }},
                    Change{"Groups", [](const Caller&) { ASSERT_EQ(::setgid(65534), 0); }},
                    Change{"TrustRoots",
                           [](const Caller& caller) {
                               const auto roots = caller.bundle().folder().write("roots.pem", "");
                               ::setenv("SSL_CERT_FILE", roots.c_str(), 1);
                               ASSERT_TRUE(Caller::works());
                               until([] { return test::nurseriesOf(::getpid()).size() == 1; });
                               const int before = nursery();
                               std::ofstream(roots) << "changed";
                               EXPECT_TRUE(Caller::works());
                               until([&] { return nursery() != 0 && nursery() != before; });
                           }},
                    Change{"Namespace",
                           [](const Caller&) {
                               if (::syscall(SYS_unshare, 0x04000000 /* CLONE_NEWUTS */) != 0)
                                   ::setenv("STOWLINE_TEST", "no namespaces here", 1);
                           }}),
    [](const auto& test) { return std::string(test.param.name); });

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
    EXPECT_FALSE(Caller::works());
    killer.join();
    test::awaitEnd(helper);
    EXPECT_EQ(silent.requests().size(), 1U);
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
    std::this_thread::sleep_for(58s);
    EXPECT_EQ(nursery(), first);
    test::awaitEnd(first);
    EXPECT_TRUE(Caller::works());
}

TEST(Nursery, KnowsNoSecretAndHasNothingOfTheHostOpen)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    const int careless = ::dup2(0, 200); // a descriptor of the host that is not close-on-exec
    for (int i = 0; i < 20; ++i)
        (void)WebServiceBroker::invokeSOAPMethodWithName(
            "M", {}, SubstitutionMap{{"<<P>>", "Kanarienvogel7f3c"}});
    ::close(careless);
    const std::string process = "/proc/" + std::to_string(nursery());
    const std::set<std::string> ownOnes{"0", "1", "2", "3", "4"};
    std::set<std::string> open;
    // Of its last child it may hold something until it has told of its end.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    do {
        open.clear();
        for (const auto& entry : std::filesystem::directory_iterator(process + "/fd"))
            open.insert(entry.path().filename());
    } while (open != ownOnes && std::chrono::steady_clock::now() < deadline);
    EXPECT_EQ(open, ownOnes);
    const std::string maps = platform::readFile(process + "/maps").value();
    std::ifstream memory(process + "/mem", std::ios::binary);
    std::istringstream lines(maps);
    std::size_t looked = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(" rw") == std::string::npos)
            continue;
        const auto begin = std::stoull(line, nullptr, 16);
        const auto end = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
        std::string bytes(end - begin, '\0');
        memory.clear();
        memory.seekg(static_cast<std::streamoff>(begin));
        memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        looked += static_cast<std::size_t>(memory.gcount());
        EXPECT_EQ(bytes.find("Kanarienvogel7f3c"), std::string::npos) << line;
    }
    EXPECT_GT(looked, 100'000U);
}

TEST(Nursery, StandardErrorOfAChildIsThatOfTheCall)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const Caller caller(silent.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        for (const char* name : {"first", "second"}) {
            const test::TemporaryFolder folder;
            const auto file = folder.write(name, "");
            const int opened = ::open(file.c_str(), O_WRONLY);
            const int kept = ::dup(STDERR_FILENO);
            ::dup2(opened, STDERR_FILENO);
            const StopRequest request;
            std::thread calling([&] {
                const StopScope scope(request);
                (void)Caller::works();
            });
            until([] { return test::helpersOf(::getpid()).size() == 1; });
            const std::string helper =
                "/proc/" + std::to_string(test::helpersOf(::getpid()).front());
            until([&] { return std::filesystem::read_symlink(helper + "/fd/2") == file; });
            std::set<std::string> open;
            for (const auto& entry : std::filesystem::directory_iterator(helper + "/fd"))
                open.insert(std::filesystem::read_symlink(entry.path()));
            EXPECT_EQ(open.count("anon_inode:[pidfd]"), 0U);
            ::dup2(kept, STDERR_FILENO);
            request.request();
            calling.join();
            ::close(opened);
            ::close(kept);
        }
    }));
}

TEST(Nursery, SignalsOfTheHostAreNotTheChilds)
{
    const RawServer silent(
        [](const std::string&, const RawConnection& connection) { connection.holdUntilClosed(); });
    const Caller caller(silent.url());
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::signal(SIGTERM, SIG_IGN);
    const StopRequest request;
    std::thread calling([&] {
        const StopScope scope(request);
        (void)Caller::works();
    });
    until([&] { return !silent.requests().empty(); });
    const auto status = platform::readFile(
        "/proc/" + std::to_string(test::helpersOf(::getpid()).at(0)) + "/status");
    ASSERT_TRUE(status);
    const auto field = [&](const std::string& name) {
        return std::stoull(status->substr(status->find(name) + name.size()), nullptr, 16);
    };
    EXPECT_EQ(field("SigBlk:"), 0U);
    EXPECT_EQ(field("SigIgn:"), 1ULL << (SIGPIPE - 1)); // as the program itself wants it
    EXPECT_EQ(field("SigCgt:"), 0U);
    request.request();
    calling.join();
}

TEST(Nursery, ThereIsNoneWithoutHandlesOfProcesses)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseSystemCalls({SYS_pidfd_open}))
            GTEST_SKIP() << *missing;
        EXPECT_TRUE(Caller::works());
        EXPECT_EQ(nursery(), 0);
    }));
}

TEST(Nursery, ThereIsNoneWithoutProcAndCallsWork)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::enterMountNamespace())
            GTEST_SKIP() << *missing;
        {
            const auto empty = test::Mount::memory("/proc");
            EXPECT_TRUE(Caller::works());
        }
        EXPECT_EQ(nursery(), 0);
    }));
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::enterMountNamespace())
            GTEST_SKIP() << *missing;
        ASSERT_TRUE(Caller::works());
        const int first = nursery();
        ASSERT_NE(first, 0);
        {
            const auto empty = test::Mount::memory("/proc");
            EXPECT_TRUE(Caller::works());
        }
        test::awaitEnd(first); // it was given up, and not used on what it found before
    }));
}

TEST(Nursery, ThereIsNoneOfAHostThatTakesInOrphans)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        EXPECT_TRUE(Caller::works());
        EXPECT_EQ(nursery(), 0);
        EXPECT_FALSE(test::hasChildren());
    }));
}

TEST(Nursery, AFilterOfSystemCallsThatCameLaterHoldsForCalls)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        EXPECT_TRUE(Caller::works());
        const int first = nursery();
        if (const auto missing = test::loseSystemCalls({SYS_memfd_create}))
            GTEST_SKIP() << *missing;
        EXPECT_TRUE(Caller::works());
        test::awaitEnd(first);
    }));
}

TEST(Nursery, ALimitOfProcessesIsAnErrorWithTheCureAsAlways)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        constexpr uid_t nobody = 54321; // has no process but this one
        const rlimit two{1, 1};
        ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &two), 0);
        if (::setgid(nobody) != 0 || ::setuid(nobody) != 0)
            GTEST_SKIP() << "Only root can become somebody else.";
        std::optional<Error> error;
        EXPECT_FALSE(WebServiceBroker::invokeSOAPMethodWithName("M", {}, {}, &error));
        ASSERT_TRUE(error);
        EXPECT_NE(error->localizedDescription().find("ulimit -u"), std::string::npos)
            << error->localizedDescription();
    }));
}

TEST(Nursery, AThousandThreadsGetTheirOwnAnswers)
{
    const RawServer echo([](const std::string& request, const RawConnection& connection) {
        const auto begin = request.find("<p>") + 3;
        connection.send(test::soapAnswer(
            "<echo>" + request.substr(begin, request.find("</p>") - begin) + "</echo>"));
    });
    const Caller caller(echo.url());
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    std::atomic<int> right = 0;
    for (int t = 0; t < 1000; ++t) {
        threads.emplace_back([&, t] {
            const auto result = WebServiceBroker::invokeSOAPMethodWithName(
                "M", {}, SubstitutionMap{{"<<P>>", std::to_string(t)}});
            const bool isRight =
                result && valueAtKeyPath(*result, "echo") == Value(std::to_string(t));
            right += isRight ? 1 : 0;
            wrong += result && !isRight ? 1 : 0; // too many open files are an error, not an answer
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(right, 0);
    std::cout << right << " of 1000 answered\n";
    EXPECT_FALSE(test::hasChildren());
    EXPECT_TRUE(test::helpersOf(::getpid()).empty());
}

/// Takes what each client says first, and hangs up.
class Listener {
public:
    Listener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::listen(socket_, 16), 0);
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { ::close(socket_); }

    [[nodiscard]] int port() const { return port_; }

    /// What the next client says first.
    [[nodiscard]] std::string hear() const
    {
        const int client = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        std::array<char, 4096> bytes{};
        const ssize_t count = ::recv(client, bytes.data(), bytes.size(), 0);
        ::close(client);
        return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    int socket_;
    int port_ = 0;
};

TEST(Nursery, ChildrenDrawRandomNumbersOfTheirOwn)
{
    const Listener listener;
    const Caller caller("https://127.0.0.1:" + std::to_string(listener.port()) + "/");
    constexpr std::size_t calls = 20;
    constexpr std::size_t randomAt = 11; // in a record with a ClientHello (RFC 8446, section 4.1.2)
    constexpr std::size_t sessionAt = randomAt + 33;
    std::set<std::string> randoms;
    std::set<std::string> sessions;
    std::thread listening([&] {
        for (std::size_t i = 0; i < calls; ++i) {
            const std::string hello = listener.hear();
            ASSERT_GT(hello.size(), 200U);
            randoms.insert(hello.substr(randomAt, 32));
            sessions.insert(hello.substr(sessionAt, 32));
        }
    });
    for (std::size_t i = 0; i < calls; ++i)
        EXPECT_FALSE(Caller::works());
    listening.join();
    EXPECT_NE(nursery(), 0) << "not what this is about";
    EXPECT_EQ(randoms.size(), calls);
    EXPECT_EQ(sessions.size(), calls);
}

} // namespace
} // namespace stowline
