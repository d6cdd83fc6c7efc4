// How a child ended, where the system or the host program makes that hard to know.
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/threads/StopRequest.h"
#include "tests/support/Program.h"
#include "tests/support/SystemCallFilter.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

std::string fourBytes(std::string_view)
{
    return "OK!\n";
}

std::filesystem::path script(const test::TemporaryFolder& folder, const std::string& lines)
{
    const auto file = folder.write("helper", "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
}

/// A host that collects the ends of all its children, as some event loops do.
class Collector {
public:
    Collector()
        : thread_([this] {
              while (!done_) {
                  while (::waitpid(-1, nullptr, WNOHANG) > 0)
                      ++collected_;
                  std::this_thread::yield();
              }
          })
    {
    }
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;
    ~Collector()
    {
        done_ = true;
        thread_.join();
    }
    [[nodiscard]] int collected() const { return collected_; }

private:
    std::atomic<bool> done_ = false;
    std::atomic<int> collected_ = 0;
    std::thread thread_;
};

/// What must hold however ends are found out: answers, statuses, limits.
void expectRightEnds(bool statusesAreKnown)
{
    const test::TemporaryFolder folder;
    const auto good =
        runChild({script(folder, "cat \"${1#@}\"; exec 1>&-; read r"), "in", fourBytes, 30s});
    ASSERT_TRUE(good);
    EXPECT_EQ(good->output, "in");
    EXPECT_FALSE(good->endedByLimit);
    EXPECT_EQ(good->exit.isKnown, statusesAreKnown);
    EXPECT_EQ(good->exit.isSuccess(), statusesAreKnown);

    const auto failed = runChild({script(folder, "echo x; exit 7"), "", fourBytes, 30s});
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->output, "x\n");
    EXPECT_FALSE(failed->exit.isSuccess());
    EXPECT_EQ(failed->exit.isKnown, statusesAreKnown);
    EXPECT_EQ(failed->exit.status, statusesAreKnown ? 7 : 0);

    const auto start = std::chrono::steady_clock::now();
    const auto late =
        runChild({script(folder, "echo x; exec 1>&-; exec sleep 600"), "", fourBytes, 300ms});
    ASSERT_TRUE(late);
    EXPECT_TRUE(late->endedByLimit);
    EXPECT_FALSE(late->exit.isSuccess());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_FALSE(test::hasChildren());
    EXPECT_FALSE(runChild({"/nonexistent/helper", "", fourBytes, 1s}));
    EXPECT_FALSE(test::hasChildren());
}

TEST(ChildEnd, IsKnownAsAlways)
{
    expectRightEnds(true);
}

TEST(ChildEnd, IsKnownWithoutHandlesOfProcesses)
{
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseProcessHandles())
            GTEST_SKIP() << *missing;
        if (const auto missing = test::loseSystemCalls(
                {SYS_pidfd_open, SYS_pidfd_send_signal, SYS_clone3, SYS_close_range}))
            GTEST_SKIP() << *missing;
        expectRightEnds(true);
    }));
}

TEST(ChildEnd, IsNotGuessedWhereTheHostIgnoresIt)
{
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        std::signal(SIGCHLD, SIG_IGN);
        expectRightEnds(false);
    }));
}

TEST(ChildEnd, IsNotGuessedWhereTheHostIgnoresItAndThereAreNoHandles)
{
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseProcessHandles())
            GTEST_SKIP() << *missing;
        if (const auto missing =
                test::loseSystemCalls({SYS_pidfd_open, SYS_pidfd_send_signal, SYS_clone3}))
            GTEST_SKIP() << *missing;
        std::signal(SIGCHLD, SIG_IGN);
        expectRightEnds(false);
    }));
}

TEST(ChildEnd, IsNotGuessedWhereTheHostCollectsIt)
{
    const test::TemporaryFolder folder;
    const auto helper = script(folder, "cat \"${1#@}\"; exec 1>&-; read r; exit 0");
    const Collector collector;
    for (int i = 0; i < 50; ++i) {
        const auto answer = runChild({helper, "in", fourBytes, 30s});
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->output, "in");
        EXPECT_FALSE(answer->endedByLimit);
        EXPECT_FALSE(answer->exit.bySignal);
        EXPECT_EQ(answer->exit.status, 0);
    }
    const auto late = runChild({script(folder, "exec sleep 600"), "", fourBytes, 100ms});
    ASSERT_TRUE(late);
    EXPECT_TRUE(late->endedByLimit);
    EXPECT_FALSE(late->exit.isSuccess());
}

TEST(ChildEnd, NoProcessIsSignalledByItsNumber)
{
    // Whoever tries to signal a number is ended; children are ended all the same.
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::endAtSystemCalls({SYS_kill, SYS_tkill, SYS_tgkill}))
            GTEST_SKIP() << *missing;
        expectRightEnds(true);
    }));
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseProcessHandles())
            GTEST_SKIP() << *missing;
        if (const auto missing = test::loseSystemCalls({SYS_pidfd_open, SYS_pidfd_send_signal}))
            GTEST_SKIP() << *missing;
        if (const auto missing = test::endAtSystemCalls({SYS_kill, SYS_tkill, SYS_tgkill}))
            GTEST_SKIP() << *missing;
        expectRightEnds(true);
    }));
}

/// What a helper sees of its input: private, and without a name.
void expectANamelessInput()
{
    const test::TemporaryFolder folder;
    const auto helper =
        script(folder, "cat \"${1#@}\"; stat -L -c ' %a %h' \"${1#@}\"; exec 1>&-; read r");
    const auto answer = runChild({helper, "in", fourBytes, 30s});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->output, "in 600 0\n");
    expectRightEnds(true);
}

TEST(ChildInput, TravelsInANamelessFileWhereMemoryHasNone)
{
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseSystemCalls({SYS_memfd_create}))
            GTEST_SKIP() << *missing;
        expectANamelessInput();
    }));
}

TEST(ChildInput, LosesItsNameAtOnceWhereFilesAreMadeWithOne)
{
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        if (const auto missing = test::loseSystemCalls({SYS_memfd_create}))
            GTEST_SKIP() << *missing;
        if (const auto missing = test::loseNamelessFiles())
            GTEST_SKIP() << *missing;
        EXPECT_EQ(::open("/tmp", O_TMPFILE | O_RDWR, 0600), -1);
        expectANamelessInput();
    }));
}

TEST(ChildStart, SaysThatTooManyFilesAreOpen)
{
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([] {
        constexpr rlim_t most = 64;
        const rlimit few{most, most};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        std::vector<int> taken;
        for (int number = ::dup(0); number >= 0; number = ::dup(0))
            taken.push_back(number);
        for (std::size_t free = 0; free < 5; ++free) { // five are enough, or it says so
            const auto answer = runChild({"/bin/true", "", fourBytes, 30s});
            ASSERT_TRUE(answer || answer.error().systemError == EMFILE)
                << free << " " << answer.error().systemError;
            const std::string sentence = answer ? "" : answer.error().sentence();
            EXPECT_TRUE(sentence.empty() ||
                        sentence == "Too many files are open. Please close some, or raise the "
                                    "limit (ulimit -n).");
            EXPECT_FALSE(free < 3 && answer);
            ::close(taken.back());
            taken.pop_back();
        }
    }));
}

TEST(ChildStart, SaysWhatElseIsWrong)
{
    const auto missing = runChild({"/nonexistent/helper", "", fourBytes, 1s});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().systemError, ENOENT);
    EXPECT_EQ(missing.error().sentence(), "Please install the program again.");
    EXPECT_NE(StartFailure{EAGAIN}.sentence().find("ulimit -u"), std::string::npos);
    EXPECT_NE(StartFailure{ENOMEM}.sentence().find("memory"), std::string::npos);
}

TEST(ChildOutput, IsBounded)
{
    ChildRun run{"/bin/sh", "", fourBytes, 60s};
    const test::TemporaryFolder folder;
    run.program = script(folder, "exec cat /dev/zero");
    run.maximumOutputBytes = 1'000'000;
    const auto answer = runChild(run);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->endedBySize);
    EXPECT_FALSE(answer->exit.isSuccess());
    EXPECT_LE(answer->output.size(), 1'100'000U);
    EXPECT_FALSE(test::hasChildren());
}

} // namespace
} // namespace stowline::platform
