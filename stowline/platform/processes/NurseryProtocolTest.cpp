// What a host and a nursery say to each other, cut, wrong or from somebody else; and a nursery
// whose work the test chooses.
#include "stowline/platform/processes/BuildIdentity.h"
#include "stowline/platform/processes/ChildConversation.h"
#include "stowline/platform/processes/NurseryMessages.h"
#include "stowline/platform/processes/NurseryWork.h"
#include "stowline/platform/processes/Spawn.h"
#include "tests/support/Program.h"
#include "tests/support/SystemCallFilter.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

/// Five descriptors that a call could bring.
std::array<int, kCallDescriptors> five()
{
    return {0, 0, 0, 0, 0};
}

/// A socket pair whose second end learns who sends.
Channel pair()
{
    Channel channel = makeSocketPair(SOCK_SEQPACKET);
    constexpr int yes = 1;
    EXPECT_EQ(::setsockopt(channel.theirs.number(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes), 0);
    return channel;
}

/// Sends words with some descriptors, as a host that is out of its mind may.
void sendOther(int socket, std::string words, std::size_t descriptors)
{
    iovec content{words.data(), words.size()};
    std::vector<char> ancillary(CMSG_SPACE(descriptors * sizeof(int)));
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    if (descriptors > 0) {
        message.msg_control = ancillary.data();
        message.msg_controllen = ancillary.size();
        cmsghdr* part = CMSG_FIRSTHDR(&message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        std::memset(CMSG_DATA(part), 0, descriptors * sizeof(int));
    }
    ASSERT_GE(::sendmsg(socket, &message, 0), 0);
}

TEST(NurseryMessages, ACallArrivesWithItsSender)
{
    const Channel channel = pair();
    ReceivedCall call;
    EXPECT_EQ(receiveCall(channel.theirs.number(), call), Reception::nothing);
    EXPECT_EQ(sendCall(channel.ours.number(), five()), 0);
    EXPECT_EQ(receiveCall(channel.theirs.number(), call), Reception::call);
    EXPECT_EQ(call.sender, ::getpid());
    for (const FileDescriptor& descriptor : call.descriptors)
        EXPECT_TRUE(descriptor.isOpen());
}

TEST(NurseryMessages, WhatIsCutOrTooMuchIsNoCallAndLeavesNothingOpen)
{
    Channel channel = pair();
    const std::size_t before = test::openDescriptorCount();
    const std::string word = "call";
    for (std::size_t length = 1; length <= word.size() + 1; ++length) {
        for (const std::size_t descriptors : {0U, 1U, 4U, 5U, 6U, 200U}) {
            if (length == word.size() && descriptors == kCallDescriptors)
                continue;
            sendOther(channel.ours.number(), (word + "x").substr(0, length), descriptors);
            ReceivedCall call;
            EXPECT_EQ(receiveCall(channel.theirs.number(), call), Reception::nonsense)
                << length << " " << descriptors;
        }
    }
    EXPECT_EQ(test::openDescriptorCount(), before);
    channel.ours.close();
    ReceivedCall call;
    EXPECT_EQ(receiveCall(channel.theirs.number(), call), Reception::end);
}

TEST(NurseryMessages, AReportThatIsCutIsNoReportAndNotTheEndEither)
{
    for (std::size_t length = 1; length < sizeof(NurseryReport); ++length) {
        const Channel channel = pair();
        const NurseryReport whole{NurseryReport::Kind::ended, 7, 0};
        NurseryReport report;
        EXPECT_EQ(receiveReport(channel.ours.number(), report), ReportState::none);
        ASSERT_EQ(::send(channel.theirs.number(), &whole, length, 0), ssize_t(length));
        EXPECT_EQ(receiveReport(channel.ours.number(), report), ReportState::nonsense) << length;
        sendReport(channel.theirs.number(), whole);
        EXPECT_EQ(receiveReport(channel.ours.number(), report), ReportState::report);
        EXPECT_EQ(report.value, 7);
    }
}

/// A nursery in a process of its own, with work of the test's.
class TestNursery {
public:
    explicit TestNursery(
        std::function<int()> work, std::function<void()> prepare = [] {},
        std::function<bool()> prepareMore = {}, std::function<void()> prepareSoon = {},
        std::chrono::milliseconds idleLimit = std::chrono::minutes(1))
        : channel_(pair())
    {
        const int host = static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0));
        process_ = ::fork();
        if (process_ != 0) {
            ::close(host);
            channel_.theirs.close();
            return;
        }
        const int lifted = ::fcntl(channel_.theirs.number(), F_DUPFD, 10);
        const int handle = ::fcntl(host, F_DUPFD, 10);
        ::dup2(lifted, kNurserySocket);
        ::dup2(handle, kNurseryHost);
        ::close_range(kNurseryHost + 1, ~0U, 0);
        const bool isOne = isNursery({"p", kNurseryWord, std::to_string(kNurserySocket)});
        std::_Exit(isOne ? runNursery("p", {.prepare = std::move(prepare),
                                            .prepareSoon = std::move(prepareSoon),
                                            .prepareMore = std::move(prepareMore),
                                            .run = [&](const auto&) { return work(); },
                                            .idleLimit = idleLimit})
                         : 99);
    }
    TestNursery(const TestNursery&) = delete;
    TestNursery& operator=(const TestNursery&) = delete;
    ~TestNursery()
    {
        channel_.ours.close();
        int status = 0;
        EXPECT_EQ(::waitpid(process_, &status, 0), process_);
        EXPECT_EQ(status, isKilled_ ? SIGKILL : 0);
    }

    /// A child of it is expected to kill it.
    void mayBeKilled() { isKilled_ = true; }

    [[nodiscard]] int socket() const { return channel_.ours.number(); }

    /// Asks for a child. @param output where it writes; @return our end of what is told of it
    [[nodiscard]] FileDescriptor ask(int output = -1) const
    {
        Channel report = makeSocketPair(SOCK_SEQPACKET);
        const FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
        const int number = nothing.number();
        EXPECT_EQ(sendCall(socket(), {number, output < 0 ? number : output, number, number,
                                      report.theirs.number()}),
                  0);
        return std::move(report.ours);
    }

private:
    Channel channel_;
    pid_t process_ = -1;
    bool isKilled_ = false;
};

/// The next report of a call, as "kind value bySignal;"; empty when there is none any more.
std::string nextReportOf(const FileDescriptor& socket)
{
    pollfd watched{socket.number(), POLLIN, 0};
    EXPECT_EQ(::poll(&watched, 1, 30'000), 1);
    NurseryReport report;
    if (receiveReport(socket.number(), report) != ReportState::report)
        return {};
    return std::to_string(static_cast<int>(report.kind)) + " " + std::to_string(report.value) +
           " " + std::to_string(report.bySignal) + ";";
}

/// The reports of a call up to its end.
std::string reportsOf(const FileDescriptor& socket)
{
    std::string told;
    for (std::string next = nextReportOf(socket); !next.empty(); next = nextReportOf(socket))
        told += next;
    return told;
}

TEST(NurseryWork, TellsOfTheBeginningAndTheEndOfEachChild)
{
    const TestNursery nursery([] { return 252; });
    EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 252 0;3 252 0;");
    EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 252 0;3 252 0;");
}

TEST(NurseryWork, PreparesMoreOnceAChildWasAskedForAndKeepsNobodyWaiting)
{
    const Channel pieces = makePipe();
    const int ours = pieces.ours.number();
    ASSERT_EQ(::fcntl(pieces.theirs.number(), F_SETFL, O_NONBLOCK),
              0); // a full one holds up nobody
    const FileDescriptor before(::dup(STDOUT_FILENO));
    ::dup2(pieces.theirs.number(), STDOUT_FILENO); // which stays open in the nursery
    const TestNursery nursery([] { return 7; }, [] {},
                              [] { // which never comes to its end
                                  (void)!::write(STDOUT_FILENO, "p", 1);
                                  return true;
                              });
    ::dup2(before.number(), STDOUT_FILENO);
    pollfd watched{ours, POLLIN, 0};
    EXPECT_EQ(::poll(&watched, 1, 200), 0) << "prepares for calls that nobody may make";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 7 0;3 7 0;");
        char piece = 0;
        EXPECT_EQ(::read(ours, &piece, 1), 1);
        EXPECT_EQ(piece, 'p');
    }
}

TEST(NurseryWork, PreparesSoonOnceAndBeforeAnybodyAsks)
{
    const Channel pieces = makePipe();
    const FileDescriptor before(::dup(STDOUT_FILENO));
    ::dup2(pieces.theirs.number(), STDOUT_FILENO); // which stays open in the nursery
    const TestNursery nursery([] { return 7; }, [] {}, {},
                              [] { (void)!::write(STDOUT_FILENO, "s", 1); });
    ::dup2(before.number(), STDOUT_FILENO);
    char piece = 0;
    EXPECT_EQ(::read(pieces.ours.number(), &piece, 1), 1); // nobody has asked yet
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 7 0;3 7 0;");
    pollfd watched{pieces.ours.number(), POLLIN, 0};
    EXPECT_EQ(::poll(&watched, 1, 0), 0) << "prepared twice";
}

TEST(NurseryWork, TellsOfSignals)
{
    const TestNursery nursery([] { return std::raise(SIGKILL); }); // which nothing can catch
    EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;3 9 1;");
}

TEST(NurseryWork, EndsAChildWhoseHostAsksOrIsGone)
{
    const TestNursery nursery([] { return ::pause(); });
    const FileDescriptor asked = nursery.ask();
    FileDescriptor left = nursery.ask();
    for (const FileDescriptor* call : std::array<const FileDescriptor*, 2>{&asked, &left}) {
        EXPECT_EQ(nextReportOf(*call), "1 0 0;");
        EXPECT_EQ(nextReportOf(*call), "4 0 0;"); // the child's own word
    }
    ::shutdown(asked.number(), SHUT_WR);
    EXPECT_EQ(reportsOf(asked), "3 9 1;");
    left.close(); // and the nursery ends, as its destructor sees
}

TEST(NurseryWork, ACallThatIsTakenBackBeforeItBeginsNeverDoes)
{
    const TestNursery nursery([] { return 0; });
    Channel report = makeSocketPair(SOCK_SEQPACKET);
    ::shutdown(report.ours.number(), SHUT_WR);
    EXPECT_EQ(sendCall(nursery.socket(), {0, 0, 0, 0, report.theirs.number()}), 0);
    report.theirs.close();
    EXPECT_EQ(reportsOf(report.ours), "2 " + std::to_string(ECANCELED) + " 0;");
}

TEST(NurseryWork, NobodyButTheHostIsServed)
{
    const TestNursery nursery([] { return 0; });
    const pid_t other = ::fork();
    if (other == 0) {
        const FileDescriptor report = nursery.ask();
        std::_Exit(reportsOf(report).empty() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);
    sendOther(nursery.socket(), "nonsense", 3);
    EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 0 0;3 0 0;");
}

TEST(NurseryWork, ACallForWhichNoProcessCanBeMadeIsRefused)
{
    if (::getuid() != 0)
        GTEST_SKIP() << "Only root can become somebody who has no other process.";
    const TestNursery nursery([] { return 0; },
                              [] {
                                  constexpr uid_t nobodyElse = 54321;
                                  const rlimit one{1, 1};
                                  if (::setrlimit(RLIMIT_NPROC, &one) != 0 ||
                                      ::setuid(nobodyElse) != 0)
                                      std::_Exit(99);
                              });
    const std::string refused = "1 0 0;2 " + std::to_string(EAGAIN) + " 0;";
    EXPECT_EQ(reportsOf(nursery.ask()), refused);
    EXPECT_EQ(reportsOf(nursery.ask()), refused);
}

TEST(NurseryWork, AChildThatLeavesItsDescriptorsToAnotherHasEndedAllTheSame)
{
    const TestNursery nursery([] {
        if (::fork() == 0) {
            ::alarm(5); // it is nobody's, and ends by itself
            ::pause();
        }
        return 5;
    });
    for (int i = 0; i < 2; ++i) {
        const FileDescriptor call = nursery.ask();
        for (const char* report : {"1 0 0;", "4 0 0;", "5 5 0;", "3 5 0;"})
            EXPECT_EQ(nextReportOf(call), report);
    }
}

TEST(NurseryWork, AChildThatSaysThatItEndsAndDoesNotIsEndedWhenItsHostBelievesIt)
{
    const TestNursery nursery([] {
        sendReport(kInputDescriptor + 1, {NurseryReport::Kind::leaving, 3, 0});
        return ::pause();
    });
    FileDescriptor believed = nursery.ask();
    for (const char* report : {"1 0 0;", "4 0 0;", "5 3 0;"})
        EXPECT_EQ(nextReportOf(believed), report);
    believed.close(); // and the nursery, which waits for its children, ends
}

TEST(NurseryWork, AChildThatKillsItsNurseryCountsAsBegunAndNoMoreIsSaid)
{
    TestNursery nursery([] { return ::kill(::getppid(), SIGKILL) + ::pause(); });
    nursery.mayBeKilled();
    EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;");
}

TEST(NurseryWork, ChildrenEndWithTheirNursery)
{
    TestNursery nursery([] {
        ::alarm(60); // should nobody end it
        return ::kill(::getppid(), SIGKILL) + ::pause();
    });
    nursery.mayBeKilled();
    Channel output = makePipe();
    const FileDescriptor call = nursery.ask(output.theirs.number());
    output.theirs.close();
    pollfd watched{output.ours.number(), POLLIN, 0};
    EXPECT_EQ(::poll(&watched, 1, 20'000), 1) << "it lives on";
    EXPECT_EQ(watched.revents, POLLHUP);
    EXPECT_EQ(reportsOf(call), "1 0 0;4 0 0;");
}

TEST(NurseryWork, EndsWhenNobodyAskedForSoLong)
{
    const TestNursery nursery([] { return 0; }, [] {}, {}, {}, 5s);
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < 6s) { // it begins to wait anew each time
        EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 0 0;3 0 0;");
        std::this_thread::sleep_for(300ms);
    }
    pollfd watched{nursery.socket(), POLLIN, 0};
    EXPECT_EQ(::poll(&watched, 1, 60'000), 1);
    EXPECT_NE(watched.revents & POLLHUP, 0);
    EXPECT_GT(std::chrono::steady_clock::now() - start, 9s);
}

TEST(NurseryWork, AChildThatCannotBeWatchedIsEndedAtOnce)
{
    const TestNursery nursery([] { return ::pause(); },
                              [] {
                                  if (test::loseSystemCalls({SYS_pidfd_open}))
                                      std::_Exit(0);
                              });
    const FileDescriptor call = nursery.ask();
    std::string told = reportsOf(call);
    if (told.empty())
        GTEST_SKIP() << "This system takes no filter of system calls.";
    if (const auto working = told.find("4 0 0;"); working != std::string::npos)
        told.erase(working, 6); // it may have come so far
    EXPECT_EQ(told, "1 0 0;3 9 1;");
}

TEST(NurseryWork, AChildThatNeverEndsKeepsNoOtherFromItsTurn)
{
    const TestNursery nursery([] { return ::pause(); });
    std::vector<FileDescriptor> waiting;
    for (int i = 0; i < 100; ++i) {
        waiting.push_back(nursery.ask());
        EXPECT_EQ(nextReportOf(waiting.back()), "1 0 0;");
        EXPECT_EQ(nextReportOf(waiting.back()), "4 0 0;");
    }
    for (const FileDescriptor& call : waiting) {
        ::shutdown(call.number(), SHUT_WR);
        EXPECT_EQ(reportsOf(call), "3 9 1;");
    }
}

int openBelowAThousand()
{
    int open = 0;
    for (int number = 0; number < 1000; ++number)
        open += ::fcntl(number, F_GETFD) >= 0 ? 1 : 0;
    return open;
}

TEST(NurseryWork, AChildHasItsFourDescriptorsAndTheSocketOfItsCall)
{
    const TestNursery nursery(openBelowAThousand);
    EXPECT_EQ(reportsOf(nursery.ask()), "1 0 0;4 0 0;5 5 0;3 5 0;");
    const TestNursery onOldSystem(openBelowAThousand,
                                  [] { (void)test::loseSystemCalls({SYS_close_range}); });
    EXPECT_EQ(reportsOf(onOldSystem.ask()), "1 0 0;4 0 0;5 5 0;3 5 0;");
}

TEST(NurseryWork, WithoutItsDescriptorsAProgramIsNoNursery)
{
    EXPECT_FALSE(isNursery({"p", kNurseryWord}));
    EXPECT_FALSE(isNursery({"p", "--other", "3"}));
    const FileDescriptor file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int kept = ::dup(kNurserySocket);
    ::dup2(file.number(), kNurserySocket);
    EXPECT_FALSE(isNursery({"p", kNurseryWord, "3"}));
    if (kept >= 0)
        ::dup2(kept, kNurserySocket);
}

TEST(SpawnOrphan, IsNobodysChildAndRaisesNoSignal)
{
    static volatile std::sig_atomic_t signals = 0;
    std::signal(SIGCHLD, [](int) { signals = signals + 1; });
    const auto id = spawnOrphan({"/bin/true", {"/bin/true"}, {{-1, 0}, {-1, 1}, {2, 2}}});
    ASSERT_TRUE(id);
    EXPECT_FALSE(test::hasChildren());
    test::awaitEnd(*id);
    EXPECT_EQ(signals, 0);
    EXPECT_FALSE(spawnOrphan({"/nonexistent", {"/nonexistent"}, {}}));
}

TEST(BuildIdentity, IsThatOfTheProgramAndOfNoOther)
{
    EXPECT_EQ(buildIdentity().size(), 64U);
    EXPECT_EQ(buildIdentityOfProgram("/bin/true"), std::nullopt);
    EXPECT_EQ(buildIdentityOfProgram("/nonexistent"), std::nullopt);
    EXPECT_EQ(buildIdentityOfProgram("/"), std::nullopt);
    const test::TemporaryFolder folder;
    EXPECT_EQ(buildIdentityOfProgram(folder.write("empty", "")), std::nullopt);
    EXPECT_EQ(buildIdentityOfProgram(folder.write("cut", std::string("\x7f"
                                                                     "ELF",
                                                                     4))),
              std::nullopt);
}

} // namespace
} // namespace stowline::platform
