// The first request to stop ends a backup that waits for nobody: in the middle of what it reads.
#include "tests/endtoend/HeldAnswers.h"
#include "tests/endtoend/OddFileSystem.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::BackedUp;
using test::field;
using test::HeldAnswers;
using test::noise;
using test::Words;

/// A large file on a file system that takes its time to read it.
class StopInReading : public testing::Test {
protected:
    static constexpr std::size_t kSize = 8U << 20;

    void SetUp() override
    {
        if (const auto reason = test::enterMountNamespace())
            GTEST_SKIP() << *reason;
        account_.emplace();
        disk_.emplace(account_->folder.path() / "disk",
                      Words{"gate=" + gate().string(), "slow=40"});
        if (!disk_->isMounted())
            GTEST_SKIP() << test::kNoOddFileSystem;
        account_->write({{"disk/file", noise(kSize, 1)}});
    }

    [[nodiscard]] fs::path gate() const { return place_.path() / "gate"; }
    void closeGate() const { place_.write("gate", ""); }

    /// Asks a run to stop that has come to the gate, and opens it. The rest would take seconds.
    void stopInReading(test::BackgroundProgram& run)
    {
        const fs::path met = gate().string() + ".met";
        while (!fs::exists(met) && run.isRunning())
            std::this_thread::sleep_for(5ms); // another process's file
        ASSERT_TRUE(fs::exists(met)) << run.wait().errors;
        run.signal(SIGINT);
        fs::remove(gate());
        const auto result = run.wait();
        EXPECT_EQ(result.status, 130) << result.errors;
        EXPECT_EQ(field(result, "status"), "interrupted") << result.output;
        const auto far = platform::readFile(gate().string() + ".far");
        EXPECT_LT(std::stoul(far.value_or("0")), kSize / 2) << "it was read to the end";
    }

    void expectTheNextRunIsWhole()
    {
        const auto next = account_->backup();
        EXPECT_EQ(next.status, 0) << next.errors;
        EXPECT_TRUE(account_->stored().at("disk/file") ==
                    platform::readFile(disk_->behind() / "file"));
        EXPECT_TRUE(account_->journal().entries().empty());
    }

    const test::TemporaryFolder place_;
    std::optional<BackedUp> account_;
    std::optional<test::OddFileSystem> disk_;
};

TEST_F(StopInReading, EndsTheComparisonOfAContentWithTheKnownOne)
{
    ASSERT_EQ(account_->backup().status, 0);
    fs::last_write_time(account_->folder.path() / "disk/file",
                        fs::file_time_type::clock::now()); // so that it is read again
    closeGate();
    test::BackgroundProgram run(account_->backupRun());
    stopInReading(run);
    expectTheNextRunIsWhole();
}

TEST_F(StopInReading, EndsTheCopyingOfAFileThatChanges)
{
    HeldAnswers answers(*account_);
    answers.hold(test::partsFrom(*account_, 65536));
    test::BackgroundProgram run(account_->backupRun({"--part-size", "64k"}));
    ASSERT_TRUE(answers.await()) << run.wait().errors;
    account_->write({{"disk/file", noise(kSize, 2)}}); // it is copied aside now
    closeGate();
    answers.release();
    stopInReading(run);
    expectTheNextRunIsWhole();
}

TEST(StopInWork, EndsTheWaitForStandardInput)
{
    const BackedUp account;
    test::BackgroundProgram run(account.command.run(
        {"backup", "--stdin", "dump", "--system", "iMac", "--json"}, account.environment()));
    run.writeInput(noise(100000, 1));
    // When nothing is left of that it waits for more.
    const int input = ::open(("/proc/" + std::to_string(run.processId()) + "/fd/0").c_str(),
                             O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    for (int left = 1; left > 0 && run.isRunning();)
        ASSERT_EQ(::ioctl(input, FIONREAD, &left), 0);
    ::close(input);
    run.signal(SIGINT);
    const auto deadline = std::chrono::steady_clock::now() + 1min;
    while (run.isRunning() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(5ms); // its end is what is awaited
    EXPECT_FALSE(run.isRunning()) << "it waits for the end of its input";
    run.closeInput();
    const auto result = run.wait();
    EXPECT_EQ(result.status, 130) << result.errors;
    EXPECT_EQ(field(result, "status"), "interrupted") << result.output;
    EXPECT_TRUE(account.run({"runs", "--machine", "iMac", "--json"}).output.find("\"finished\"") ==
                std::string::npos);
}

} // namespace
} // namespace stowline
