// What the children of a nursery have of the host and of each other, and what hosts get who cannot
// have one: the same as from a helper that is started alone.
#include "stowline/service/NurseryTest.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/SystemCallFilter.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <set>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using test::Caller;
using test::nursery;
using test::RawConnection;
using test::RawServer;
using test::until;

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
    const std::filesystem::directory_iterator threads(process + "/task");
    EXPECT_EQ(std::distance(begin(threads), end(threads)), 1); // what it forks is whole
    const std::string maps = platform::readFile(process + "/maps").value();
    std::ifstream memory(process + "/mem", std::ios::binary);
    std::istringstream lines(maps);
    std::size_t looked = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(" rw") == std::string::npos)
            continue;
        const auto begin = std::stoull(line, nullptr, 16);
        const auto end = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
        constexpr std::uint64_t mostOfAProgram = 1ULL << 30; // larger ones are a sanitizer's own
        if (end - begin > mostOfAProgram)
            continue;
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
#ifdef __SANITIZE_ADDRESS__                             // which catches these itself
    constexpr std::uint64_t caughtByOthers =
        1ULL << (SIGSEGV - 1) | 1ULL << (SIGBUS - 1) | 1ULL << (SIGFPE - 1);
#else
    constexpr std::uint64_t caughtByOthers = 0;
#endif
    EXPECT_EQ(field("SigCgt:") & ~caughtByOthers, 0U);
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
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The sanitizer needs /proc in each process, to look for leaks.";
#endif
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

/// Lets each of so many threads call so often, with a word of its own each time.
void callFromThreads(int count, int calls)
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
    std::atomic<int> tooMany = 0; // open files: an error, and not an answer
    for (int t = 0; t < count * calls; t += calls) {
        threads.emplace_back([&, t] {
            for (int number = t; number < t + calls; ++number) {
                std::optional<Error> error;
                const auto result = WebServiceBroker::invokeSOAPMethodWithName(
                    "M", {}, SubstitutionMap{{"<<P>>", std::to_string(number)}}, &error);
                const bool isRight =
                    result && valueAtKeyPath(*result, "echo") == Value(std::to_string(number));
                right += isRight ? 1 : 0;
                wrong += result && !isRight ? 1 : 0;
                tooMany += error && error->localizedDescription().find("Too many files") !=
                                        std::string::npos
                               ? 1
                               : 0;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(right + tooMany, count * calls);
    EXPECT_GE(right, count * calls * 9 / 10) << tooMany << " had too few descriptors";
    EXPECT_FALSE(test::hasChildren());
    until([] { return test::helpersOf(::getpid()).empty(); });
}

TEST(Nursery, AThousandThreadsGetTheirOwnAnswers)
{
    rlimit files{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = files.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &files), 0);
    constexpr rlim_t enough = 16384;
    if (files.rlim_cur < enough)
        GTEST_SKIP() << "This user may not open as many files as a thousand calls need.";
    callFromThreads(1000, 1);
}

TEST(Nursery, SixtyFourThreadsGetTheirOwnAnswersFromOneNurseryAfterAnother)
{
    callFromThreads(64, 40);
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
