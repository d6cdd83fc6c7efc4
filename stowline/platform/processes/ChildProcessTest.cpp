#include "stowline/platform/processes/ChildProcess.h"

#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>
#include <unistd.h>

namespace stowline::platform {
namespace {

using namespace std::chrono_literals;

std::string fourBytes(std::string_view)
{
    return "OK!\n";
}

/// A shell script as a helper program. It finds its input in "$1" after the "@".
std::filesystem::path script(const test::TemporaryFolder& folder, const std::string& lines)
{
    const auto file = folder.write("helper", "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
}

TEST(RunChild, HandsInputOverAndReadsTheOutputToItsEnd)
{
    const test::TemporaryFolder folder;
    const auto helper = script(folder, "cat \"${1#@}\"; exec 1>&-; read r; test \"$r\" = 'OK!'");
    const std::string input(5'000'000, 'x');
    const auto answer = runChild({helper, input, fourBytes, 30s});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->output, input);
    EXPECT_TRUE(answer->exit.isSuccess());
    EXPECT_FALSE(answer->endedByLimit);
}

TEST(RunChild, ChildInheritsTheInputAndTheStandardStreamsOnly)
{
    const int careless = ::dup2(0, 200); // a descriptor of the host that is not close-on-exec
    const test::TemporaryFolder folder;
    const auto helper =
        script(folder, "test -e /proc/$$/fd/3 && test ! -e /proc/$$/fd/200 && echo right");
    EXPECT_EQ(runChild({helper, "", fourBytes, 30s})->output, "right\n");
    ::close(careless);
}

TEST(RunChild, TheArgumentNamesAFileAndHoldsNothingElse)
{
    const test::TemporaryFolder folder;
    const auto helper = script(folder, "printf '%s' \"$*\"");
    EXPECT_EQ(runChild({helper, "secret", fourBytes, 30s})->output, "@/dev/fd/3");
}

TEST(RunChild, ReportsStatusAndSignal)
{
    const test::TemporaryFolder folder;
    const auto failing = runChild({script(folder, "exit 252"), "", fourBytes, 30s});
    ASSERT_TRUE(failing);
    EXPECT_EQ(failing->exit.status, 252);
    EXPECT_FALSE(failing->exit.isSuccess());
    const auto killed = runChild({script(folder, "kill -9 $$"), "", fourBytes, 30s});
    EXPECT_TRUE(killed->exit.bySignal);
    EXPECT_EQ(killed->exit.status, SIGKILL);
}

TEST(RunChild, IsAbsentWhenTheProgramCannotBeStarted)
{
    EXPECT_FALSE(runChild({"/nonexistent/helper", "", fourBytes, 1s}));
}

TEST(RunChild, EndsAChildThatHangsBeforeOrAfterItsOutput)
{
    const test::TemporaryFolder folder;
    for (const char* lines : {"exec sleep 600", "echo x; exec 1>&-; exec sleep 600"}) {
        const auto answer = runChild({script(folder, lines), "", fourBytes, 300ms});
        ASSERT_TRUE(answer);
        EXPECT_TRUE(answer->endedByLimit);
        EXPECT_TRUE(answer->exit.bySignal);
    }
    EXPECT_FALSE(test::hasChildren());
}

TEST(RunChild, AChildThatIsGoneBeforeTheReleaseRaisesNoSignal)
{
    const test::TemporaryFolder folder;
    const auto helper = script(folder, "exec 0<&-; echo x");
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(runChild({helper, "", fourBytes, 30s})->output, "x\n");
}

TEST(RunChild, ResetsMaskAndDispositionsInTheChild)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::signal(SIGTERM, SIG_IGN);
    const test::TemporaryFolder folder;
    const auto answer = runChild({script(folder, "kill -TERM $$; sleep 1"), "", fourBytes, 30s});
    EXPECT_TRUE(answer->exit.bySignal);
    EXPECT_EQ(answer->exit.status, SIGTERM);
}

TEST(RunChild, LeavesNoDescriptorsAndNoChildren)
{
    const test::TemporaryFolder folder;
    const auto helper = script(folder, "cat \"${1#@}\"");
    (void)runChild({helper, "x", fourBytes, 30s});
    const auto before = test::openDescriptorCount();
    for (int i = 0; i < 20; ++i)
        (void)runChild({helper, "x", fourBytes, 30s});
    (void)runChild({"/nonexistent/helper", "", fourBytes, 1s});
    EXPECT_EQ(test::openDescriptorCount(), before);
    EXPECT_FALSE(test::hasChildren());
}

TEST(RunChild, ManyThreadsAtOnceNeverMixAnswers)
{
    const test::TemporaryFolder folder;
    const auto helper = script(folder, "cat \"${1#@}\"; exec 1>&-; read r");
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int t = 0; t < 16; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5; ++i) {
                const std::string input = std::to_string(t * 100 + i);
                const auto answer = runChild({helper, input, fourBytes, 60s});
                right += answer && answer->output == input ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 80);
}

TEST(CaptureOutput, RunsACommandWithoutShell)
{
    const auto answer = captureOutput({"printf", "%s", "$HOME; echo"}, 30s);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->output, "$HOME; echo");
    EXPECT_FALSE(captureOutput({"/nonexistent"}, 1s));
    EXPECT_FALSE(captureOutput({}, 1s));
}

} // namespace
} // namespace stowline::platform
