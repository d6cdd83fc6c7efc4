// A stamp that is younger than the beginning of the reading, or hardly older, says nothing of what
// is written later: such a file is read again. Each reading here begins when the stamp is
// unsettled.
#include "tests/endtoend/HeldAnswers.h"
#include "tests/endtoend/OddFileSystem.h"
#include "tests/support/MountNamespace.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using std::chrono::system_clock;
using test::BackedUp;
using test::field;
using test::HeldAnswers;
using test::noise;

/// How much later than its reading began a stamp must be to be settled, and a little more.
constexpr auto kUnsettled = 2s;

void setTime(const fs::path& file, system_clock::time_point time)
{
    const auto passed = time.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(passed);
    const timespec stamp{.tv_sec = seconds.count(),
                         .tv_nsec = std::chrono::nanoseconds(passed - seconds).count()};
    const timespec both[2] = {stamp, stamp};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), both, 0), 0);
}

/// What a comparison has to go by.
auto stampsOf(const fs::path& file)
{
    struct stat found {};
    EXPECT_EQ(::stat(file.c_str(), &found), 0) << file;
    return std::tuple(found.st_size, found.st_ino, found.st_mtim.tv_sec, found.st_mtim.tv_nsec,
                      found.st_ctim.tv_sec, found.st_ctim.tv_nsec);
}

/// Has something read that begins before a stamp is settled, and ends when it is; on a machine that
/// is too busy for that, again with more time.
/// @param begin is given the stamp. @return whether it has begun; false ends the test
/// @param end lets it go on, and waits for its end
void readAcrossTheMoment(const std::function<bool(system_clock::time_point stamp)>& begin,
                         const std::function<void()>& end)
{
    for (auto lead = 4s; !testing::Test::HasFailure(); lead *= 2) {
        const auto stamp = system_clock::now() + lead;
        ASSERT_TRUE(begin(stamp));
        const bool isInTime = system_clock::now() < stamp;
        if (isInTime)
            std::this_thread::sleep_until(stamp + kUnsettled + 100ms);
        end();
        if (isInTime)
            return;
    }
}

TEST(UnsettledStamps, AWriteThroughAMemoryMapRightAfterABackupIsStored)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const BackedUp account;
    const test::Mount disk = test::Mount::memory(account.folder.path() / "disk");
    constexpr std::size_t size = 200000;
    account.write({{"disk/mapped", noise(size, 1)}});
    const fs::path path = account.folder.path() / "disk/mapped";
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    void* map = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ASSERT_NE(map, MAP_FAILED);
    HeldAnswers answers(account);
    std::optional<test::BackgroundProgram> run;
    int round = 0;
    readAcrossTheMoment(
        [&](auto stamp) {
            std::memcpy(map, &++round, sizeof round); // another content; the page is writable now
            setTime(path, stamp);
            answers.hold(test::partsFrom(account, 65536));
            run.emplace(account.backupRun({"--part-size", "64k"}));
            return answers.await();
        },
        [&] {
            answers.release();
            const auto result = run->wait();
            EXPECT_EQ(result.status, 0) << result.errors;
            EXPECT_EQ(field(result, "stored"), 1) << result.output;
        });
    const auto before = stampsOf(path);
    std::memcpy(map, "written later", 13);
    ASSERT_EQ(stampsOf(path), before);
    const auto result = account.backup();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(field(result, "stored"), 1) << result.output;
    EXPECT_TRUE(account.stored().at("disk/mapped").starts_with("written later"));
    ::munmap(map, size);
    ::close(file);
}

/// A file on a file system that keeps the time of writing in whole seconds, and nothing else.
class WholeSeconds : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto reason = test::enterMountNamespace())
            GTEST_SKIP() << *reason;
        account_.emplace();
        disk_.emplace(account_->folder.path() / "disk",
                      Words{"seconds", "gate=" + gate().string()});
        if (!disk_->isMounted())
            GTEST_SKIP() << test::kNoOddFileSystem;
    }

    using Words = test::Words;
    [[nodiscard]] fs::path gate() const { return place_.path() / "gate"; }
    [[nodiscard]] fs::path file() const { return account_->folder.path() / "disk/file"; }

    /// Always the same size, the same inode and the same time.
    void write(const std::string& content, system_clock::time_point stamp) const
    {
        account_->write({{"disk/file", content}});
        setTime(file(), stamp);
    }

    void expectStored(const std::string& content) const
    {
        const auto result = account_->backup();
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "stored"), 1) << result.output;
        EXPECT_EQ(account_->stored().at("disk/file"), content);
    }

    void expectUnchanged() const
    {
        const auto result = account_->backup();
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "unchanged"), 1) << result.output;
    }

    /// Begins a backup, which comes to its reading of the file and no further.
    bool beginReading()
    {
        place_.write("gate", "");
        run_.emplace(account_->backupRun());
        return awaitReader();
    }
    /// @return false when the run ended without
    bool awaitReader()
    {
        const fs::path met = gate().string() + ".met";
        while (!fs::exists(met) && run_->isRunning())
            std::this_thread::sleep_for(5ms); // another process's file
        return fs::remove(met);
    }
    [[nodiscard]] test::ProgramResult goOn()
    {
        fs::remove(gate());
        return run_->wait();
    }

    const test::TemporaryFolder place_;
    std::optional<BackedUp> account_;
    std::optional<test::OddFileSystem> disk_;
    std::optional<test::BackgroundProgram> run_;
};

TEST_F(WholeSeconds, ARewriteWithinOneIsStoredAndSoIsOneAfterItWasReadAgain)
{
    const auto stamp = system_clock::now() + 10min;
    write("first", stamp);
    const auto stamps = stampsOf(file());
    expectStored("first");
    write("again", stamp);
    ASSERT_EQ(stampsOf(file()), stamps);
    expectStored("again");
    expectUnchanged(); // it is read, and the same
    write("third", stamp);
    ASSERT_EQ(stampsOf(file()), stamps);
    expectStored("third");
    const auto longAgo = system_clock::now() - 1h;
    write("fourth", longAgo);
    expectStored("fourth");
    expectUnchanged();
    write("fifth.", longAgo);
    expectUnchanged(); // of which nothing can be seen
}

TEST_F(WholeSeconds, AreComparedWithTheBeginningOfTheFirstReading)
{
    system_clock::time_point stamp;
    int round = 0;
    readAcrossTheMoment(
        [&](auto itsStamp) {
            write("first" + std::to_string(round++ % 10), stamp = itsStamp);
            return beginReading();
        },
        [&] { EXPECT_EQ(field(goOn(), "stored"), 1); });
    write("second", stamp);
    expectStored("second");
}

TEST_F(WholeSeconds, AreComparedWithTheBeginningOfALaterReading)
{
    system_clock::time_point stamp;
    readAcrossTheMoment(
        [&](auto itsStamp) {
            write("first.", stamp = itsStamp);
            return account_->backup().status == 0 && beginReading();
        },
        [&] { EXPECT_EQ(field(goOn(), "unchanged"), 1); });
    write("second", stamp);
    expectStored("second");
}

TEST_F(WholeSeconds, AreComparedWithTheBeginningOfCopyingAside)
{
    const std::string content = noise(200000, 1);
    HeldAnswers answers(*account_);
    system_clock::time_point stamp;
    int round = 0;
    readAcrossTheMoment(
        [&](auto itsStamp) {
            write(content + std::to_string(round++), system_clock::now() - 1h);
            answers.hold(test::partsFrom(*account_, 65536));
            run_.emplace(account_->backupRun({"--part-size", "64k"}));
            if (!answers.await())
                return false;
            write(content + std::to_string(round++), stamp = itsStamp); // while it is sent
            place_.write("gate", "");
            answers.release();
            return awaitReader();
        },
        [&] {
            const auto result = goOn();
            EXPECT_EQ(result.status, 0) << result.errors;
            EXPECT_EQ(field(result, "changed_while_read"), 0) << result.output;
        });
    write(content + "x", stamp);
    expectStored(content + "x");
}

} // namespace
} // namespace stowline
