// Copying a file with progress.
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"
#include "stowline/util/General.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <barrier>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;

class CopyTest : public testing::Test {
protected:
    CopyTest() { DDLog::addLogger(log_); }

    [[nodiscard]] std::string destination() const { return folder_.path() / "copy"; }

    bool copy(const std::string& source)
    {
        return General::copyFileAt(
            source, destination(),
            [this](double fraction, std::uint64_t size, bool* stop) {
                EXPECT_FALSE(*stop);
                if (atReport_)
                    atReport_(fractions_.size());
                *stop = fractions_.size() == stopAt_;
                fractions_.push_back(fraction);
                sizes_.push_back(size);
            },
            &whyNot_);
    }

    /// Nothing is at the destination, and one error line of General was logged.
    void expectCleanFailure(const std::string& line)
    {
        EXPECT_FALSE(fs::exists(fs::symlink_status(destination())));
        expectOneLine(line);
        EXPECT_EQ(whyNot_, line);
    }
    void expectSilentFailure()
    {
        EXPECT_FALSE(fs::exists(fs::symlink_status(destination())));
        EXPECT_EQ(log_->count(), 0U);
        EXPECT_EQ(whyNot_, "");
    }
    void expectOneLine(const std::string& line)
    {
        ASSERT_EQ(log_->count(), 1U);
        EXPECT_EQ(log_->lines()[0].text, line);
        EXPECT_EQ(log_->lines()[0].flag, kLogFlagError);
        EXPECT_EQ(log_->lines()[0].function, "copyFileAt");
    }

    test::TemporaryFolder folder_;
    std::shared_ptr<CountingLogger> log_ = std::make_shared<CountingLogger>();
    std::vector<double> fractions_;
    std::vector<std::uint64_t> sizes_;
    std::string whyNot_ = "of an earlier copy";
    std::size_t stopAt_ = SIZE_MAX;
    std::function<void(std::size_t)> atReport_;
};

TEST_F(CopyTest, CopiesEveryByteAndReportsEveryStep)
{
    std::string content(100000, 'x');
    content[70000] = '\0';
    const auto source = folder_.write("source", content);
    EXPECT_TRUE(copy(source));
    EXPECT_EQ(platform::readFile(destination()), content);
    EXPECT_EQ(fractions_, (std::vector{0.0, 0.65536, 1.0, 1.0}));
    EXPECT_EQ(sizes_, std::vector<std::uint64_t>(4, 100000));
    EXPECT_EQ(log_->count(), 0U);
    EXPECT_EQ(whyNot_, "");
}

TEST_F(CopyTest, ReportsEverySecondPieceOfTenMillionBytes)
{
    EXPECT_TRUE(copy(folder_.write("source", std::string(10000000, 'y'))));
    EXPECT_EQ(fractions_[1], 131072 / 10000000.0);
    EXPECT_EQ(fractions_[2], 262144 / 10000000.0);
    EXPECT_EQ(fractions_.size(), 1 + 10000000 / 131072 + 1U);
    EXPECT_EQ(fractions_.back(), 1.0);
}

TEST_F(CopyTest, AnEmptyFileReportsStartAndEndOnly)
{
    EXPECT_TRUE(copy(folder_.write("empty", "")));
    EXPECT_EQ(fractions_, (std::vector{0.0, 1.0}));
    EXPECT_EQ(fs::file_size(destination()), 0U);
}

TEST_F(CopyTest, WorksWithoutHandler)
{
    const auto source = folder_.write("source", "letter");
    EXPECT_TRUE(General::copyFileAt(source, destination()));
    EXPECT_EQ(platform::readFile(destination()), "letter");
}

TEST_F(CopyTest, GivesTheCopyTheModeOfANewFileButNeverMoreThanTheSources)
{
    const auto source = folder_.write("source", "letter");
    ::umask(027);
    for (const auto& [of, expected] :
         {std::pair{0666, 0640}, {0600, 0600}, {0755, 0640}, {0500, 0400}}) {
        fs::permissions(source, fs::perms(of));
        fs::remove(destination());
        fractions_.clear();
        atReport_ = [&, mode = expected](std::size_t) {
            EXPECT_EQ(fs::status(destination()).permissions(), fs::perms(mode))
                << of << " meanwhile";
        };
        ASSERT_TRUE(copy(source));
        EXPECT_EQ(fs::status(destination()).permissions(), fs::perms(expected)) << of;
    }
}

TEST_F(CopyTest, TheStopFlagIsOneForTheWholeCopy)
{
    const auto source = folder_.write("source", std::string(300000, 'x'));
    bool* first = nullptr;
    int reports = 0;
    EXPECT_TRUE(General::copyFileAt(source, destination(), [&](double, std::uint64_t, bool* stop) {
        first = first ? first : stop;
        EXPECT_EQ(stop, first);
        ++reports;
    }));
    EXPECT_GT(reports, 2);
}

TEST_F(CopyTest, HolesStayHoles)
{
    // Data, a hole, data, and a hole to the end.
    const std::string source = folder_.path() / "source";
    const platform::FileDescriptor file(::open(source.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    constexpr off_t size = 64 << 20;
    ASSERT_EQ(::pwrite(file.number(), "begin", 5, 0), 5);
    ASSERT_EQ(::pwrite(file.number(), "middle", 6, size / 2 + 1234), 6);
    ASSERT_EQ(::ftruncate(file.number(), size), 0);
    struct stat of = {};
    ASSERT_EQ(::stat(source.c_str(), &of), 0);
    if (of.st_blocks * 512 > size / 2)
        GTEST_SKIP() << "This file system has no holes.";
    EXPECT_TRUE(copy(source));
    struct stat copied = {};
    ASSERT_EQ(::stat(destination().c_str(), &copied), 0);
    EXPECT_EQ(copied.st_size, size);
    EXPECT_LE(copied.st_blocks, of.st_blocks + 256);
    EXPECT_EQ(platform::readFile(destination()), platform::readFile(source));
    EXPECT_EQ(fractions_.back(), 1.0);
    EXPECT_GT(fractions_.size(), 100U) << "holes are reported too";
}

TEST_F(CopyTest, NeverTouchesWhatIsThere)
{
    const auto source = folder_.write("source", "new");
    folder_.write("copy", "old");
    EXPECT_FALSE(copy(source));
    EXPECT_EQ(platform::readFile(destination()), "old");
    EXPECT_TRUE(fractions_.empty());
    EXPECT_EQ(log_->count(), 0U);
    EXPECT_FALSE(General::copyFileAt(source, source));
    EXPECT_EQ(platform::readFile(source), "new");
    EXPECT_FALSE(General::copyFileAt(source, folder_.path()));
}

TEST_F(CopyTest, DoesNotWriteThroughADanglingLink)
{
    const auto source = folder_.write("source", "new");
    fs::create_symlink(folder_.path() / "elsewhere", destination());
    EXPECT_FALSE(copy(source));
    EXPECT_FALSE(fs::exists(folder_.path() / "elsewhere"));
    EXPECT_TRUE(fs::is_symlink(destination()));
}

TEST_F(CopyTest, RefusesAMissingSourceAndAFolderSilently)
{
    EXPECT_FALSE(copy(folder_.path() / "missing"));
    EXPECT_FALSE(copy(folder_.path()));
    EXPECT_FALSE(copy(""));
    EXPECT_FALSE(copy("/" + std::string(5000, 'x')));
    fs::create_symlink("loop", folder_.path() / "loop");
    EXPECT_FALSE(copy(folder_.path() / "loop"));
    EXPECT_FALSE(fs::exists(destination()));
    EXPECT_TRUE(fractions_.empty());
    EXPECT_EQ(log_->count(), 0U);
}

TEST_F(CopyTest, FollowsALinkToAFile)
{
    fs::create_symlink(folder_.write("source", "letter"), folder_.path() / "link");
    EXPECT_TRUE(copy(folder_.path() / "link"));
    EXPECT_FALSE(fs::is_symlink(destination()));
    EXPECT_EQ(platform::readFile(destination()), "letter");
}

TEST_F(CopyTest, APipeDoesNotMakeItWait)
{
    const std::string fifo = folder_.path() / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(copy(fifo));
    expectCleanFailure("Cannot read " + fifo + ": it is not a regular file");
}

TEST_F(CopyTest, ADeviceIsNoSource)
{
    EXPECT_FALSE(copy("/dev/zero"));
    expectCleanFailure("Cannot read /dev/zero: it is not a regular file");
}

TEST_F(CopyTest, ACancelledStartLeavesNothing)
{
    stopAt_ = 0;
    const auto source = folder_.write("source", std::string(100000, 'x'));
    EXPECT_FALSE(copy(source));
    EXPECT_EQ(fractions_, std::vector{0.0});
    expectSilentFailure();
}

TEST_F(CopyTest, ACancelledMiddleLeavesNothing)
{
    stopAt_ = 1;
    const auto source = folder_.write("source", std::string(100000, 'x'));
    EXPECT_FALSE(copy(source));
    EXPECT_EQ(fractions_, (std::vector{0.0, 0.65536}));
    expectSilentFailure();
}

TEST_F(CopyTest, ACancelledLastReportRemovesTheWholeCopy)
{
    stopAt_ = 3;
    const auto source = folder_.write("source", std::string(100000, 'x'));
    EXPECT_FALSE(copy(source));
    EXPECT_EQ(fractions_, (std::vector{0.0, 0.65536, 1.0, 1.0}));
    expectSilentFailure();
}

TEST_F(CopyTest, AHandlerThatThrowsLeavesNothing)
{
    const auto source = folder_.write("source", "letter");
    atReport_ = [](std::size_t) { throw std::runtime_error("the host's own"); };
    EXPECT_THROW(copy(source), std::runtime_error);
    EXPECT_FALSE(fs::exists(destination()));
}

TEST_F(CopyTest, AShrinkingSourceFails)
{
    const auto source = folder_.write("source", std::string(200000, 'x'));
    atReport_ = [&](std::size_t number) {
        if (number == 1)
            fs::resize_file(source, 70000);
    };
    EXPECT_FALSE(copy(source));
    expectCleanFailure("Cannot copy " + source.string() + ": its size changed while it was copied");
}

TEST_F(CopyTest, AGrowingSourceFailsAndNeverReportsMoreThanOne)
{
    const auto source = folder_.write("source", std::string(100000, 'x'));
    atReport_ = [&](std::size_t number) {
        fs::resize_file(source, 100000 + 200000 * (number + 1));
    };
    EXPECT_FALSE(copy(source));
    for (const double fraction : fractions_)
        EXPECT_LE(fraction, 1.0);
    expectCleanFailure("Cannot copy " + source.string() + ": its size changed while it was copied");
}

TEST_F(CopyTest, AnEmptySourceThatGrowsFails)
{
    const auto source = folder_.write("source", "");
    atReport_ = [&](std::size_t) { fs::resize_file(source, 5); };
    EXPECT_FALSE(copy(source));
    expectCleanFailure("Cannot copy " + source.string() + ": its size changed while it was copied");
}

TEST_F(CopyTest, ARemovedDestinationFolderFails)
{
    const auto folder = folder_.path() / "folder";
    fs::create_directory(folder);
    const auto source = folder_.write("source", std::string(100000, 'x'));
    EXPECT_FALSE(General::copyFileAt(
        source, folder / "copy", [&](double, std::uint64_t, bool*) { fs::remove_all(folder); }));
    expectOneLine("Cannot finish " + (folder / "copy").string() +
                  ": it was moved or removed while it was written");
}

TEST_F(CopyTest, ARenamedDestinationFolderFailsAndLeavesNothingInIt)
{
    const auto folder = folder_.path() / "folder";
    fs::create_directory(folder);
    const auto source = folder_.write("source", std::string(100000, 'x'));
    EXPECT_FALSE(
        General::copyFileAt(source, folder / "copy", [&](double fraction, std::uint64_t, bool*) {
            if (fraction == 0.0)
                fs::rename(folder, folder_.path() / "renamed");
        }));
    EXPECT_TRUE(fs::is_empty(folder_.path() / "renamed"));
}

TEST_F(CopyTest, AFailureDoesNotRemoveAFileThatTookThePlace)
{
    const auto source = folder_.write("source", std::string(100000, 'x'));
    atReport_ = [&](std::size_t number) {
        if (number == 0) {
            fs::remove(destination());
            folder_.write("copy", "somebody else's");
        }
    };
    EXPECT_FALSE(copy(source));
    EXPECT_EQ(platform::readFile(destination()), "somebody else's");
}

TEST_F(CopyTest, AMissingDestinationFolderFails)
{
    const auto source = folder_.write("source", "letter");
    const std::string nowhere = folder_.path() / "no" / "copy";
    EXPECT_FALSE(General::copyFileAt(source, nowhere));
    expectOneLine("Cannot create " + nowhere + ": No such file or directory");
}

TEST_F(CopyTest, AReadErrorFails)
{
    EXPECT_FALSE(copy("/proc/self/mem"));
    expectCleanFailure("Cannot read /proc/self/mem: Input/output error");
}

TEST_F(CopyTest, CopiesAFileThatTheSystemMakesUpAsItIsRead)
{
    EXPECT_TRUE(copy("/proc/version"));
    EXPECT_EQ(fractions_, (std::vector{0.0, 1.0}));
    EXPECT_EQ(platform::readFile(destination()), platform::readFile("/proc/version"));
    EXPECT_GT(fs::file_size(destination()), 0U);
}

TEST_F(CopyTest, APathWithNulIsRefused)
{
    using namespace std::string_literals;
    const auto source = folder_.write("source", "letter");
    EXPECT_FALSE(General::copyFileAt(source, destination() + "\0more"s));
    EXPECT_FALSE(General::copyFileAt(source.string() + "\0more"s, destination()));
    EXPECT_FALSE(fs::exists(destination()));
}

TEST_F(CopyTest, OfTwoCopiesToOneNameOneSucceeds)
{
    const auto first = folder_.write("first", std::string(100000, '1'));
    const auto second = folder_.write("second", std::string(100000, '2'));
    for (int round = 0; round < 50; ++round) {
        std::barrier start(2);
        std::array<bool, 2> done{};
        {
            std::jthread one([&] {
                start.arrive_and_wait();
                done[0] = General::copyFileAt(first, destination());
            });
            std::jthread two([&] {
                start.arrive_and_wait();
                done[1] = General::copyFileAt(second, destination());
            });
        }
        ASSERT_NE(done[0], done[1]);
        ASSERT_EQ(platform::readFile(destination()), std::string(100000, done[0] ? '1' : '2'));
        fs::remove(destination());
    }
}

TEST_F(CopyTest, CopiesFromOneFileSystemToAnother)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto mount = test::Mount::memory(folder_.path() / "memory", "size=8m");
    const std::string content(3000001, 'z');
    EXPECT_TRUE(copy(folder_.write("memory/source", content)));
    EXPECT_EQ(platform::readFile(destination()), content);
}

TEST_F(CopyTest, AFullDiskFails)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto memory = folder_.path() / "memory";
    const auto mount = test::Mount::memory(memory, "size=1m");
    const auto source = folder_.write("source", std::string(3000000, 'z'));
    const std::string full = memory / "copy";
    EXPECT_FALSE(General::copyFileAt(source, full));
    EXPECT_TRUE(fs::is_empty(memory));
    expectOneLine("Cannot write to " + full + ": No space left on device");
}

TEST_F(CopyTest, AFullDiskFailsAlsoWhereTheFileSystemCopies)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto memory = folder_.path() / "memory";
    const auto mount = test::Mount::memory(memory, "size=4m");
    const auto source = folder_.write("memory/source", std::string(3000000, 'z'));
    const std::string full = memory / "copy";
    EXPECT_FALSE(General::copyFileAt(source, full));
    EXPECT_FALSE(fs::exists(full));
    ASSERT_EQ(log_->count(), 1U);
    EXPECT_TRUE(log_->lines()[0].text.ends_with(": No space left on device"));
}

TEST(WriteAll, TellsOfAFullDevice)
{
    const platform::FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(full.isOpen());
    EXPECT_FALSE(platform::writeAll(full.number(), "letter"));
    EXPECT_EQ(errno, ENOSPC);
}

} // namespace
} // namespace stowline
