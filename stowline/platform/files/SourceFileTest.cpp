#include "stowline/platform/files/SourceFile.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {
namespace {

std::string contentOf(const SourceFile& file)
{
    std::string room(1000, '?');
    int error = 0;
    room.resize(file.readAt(0, room, error).value());
    return room;
}

TEST(SourceFile, IsOpenedInAFolderAndFollowsNoLink)
{
    const test::TemporaryFolder folder;
    folder.write("file", "content");
    ASSERT_EQ(::symlink("file", (folder.path() / "link").c_str()), 0);
    ASSERT_EQ(::mkfifo((folder.path() / "pipe").c_str(), 0600), 0);
    const FileDescriptor parent(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY));
    int error = 0;
    const auto file = SourceFile::open(parent.number(), "file", error);
    ASSERT_TRUE(file);
    EXPECT_EQ(contentOf(*file), "content");
    EXPECT_FALSE(SourceFile::open(parent.number(), "link", error));
    EXPECT_EQ(error, ELOOP);
    EXPECT_FALSE(SourceFile::open(parent.number(), "pipe", error)); // and nobody waits
    EXPECT_EQ(error, EINVAL);
    EXPECT_FALSE(SourceFile::open(parent.number(), "nothing", error));
    EXPECT_EQ(error, ENOENT);
}

TEST(SourceFile, TellsAStateFromTheNext)
{
    const test::TemporaryFolder folder;
    const auto path = folder.write("file", "content");
    int error = 0;
    const auto file = SourceFile::open(SourceFile::kNoFolder, path, error);
    const auto before = file->state();
    EXPECT_EQ(before, file->state());
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    folder.write("file", "another");
    const struct timespec times[] = {status.st_atim, status.st_mtim}; // put back
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    EXPECT_NE(before, file->state());
}

TEST(SourceFile, HolesAreZeros)
{
    const test::TemporaryFolder folder;
    const auto path = folder.write("file", "");
    ASSERT_EQ(::truncate(path.c_str(), 1 << 20), 0);
    int error = 0;
    auto file = SourceFile::open(SourceFile::kNoFolder, path, error);
    std::string room(1 << 21, '?');
    EXPECT_EQ(file->readAt(0, room, error), std::size_t{1} << 20);
    EXPECT_EQ(room.substr(0, 1 << 20), std::string(1 << 20, '\0'));
    EXPECT_EQ(file->readAt(1 << 20, room, error), 0U);
}

TEST(SourceFile, ACopyAsideKeepsOneState)
{
    const test::TemporaryFolder folder;
    const auto path = folder.write("file", "content");
    int error = 0;
    const auto file = SourceFile::open(SourceFile::kNoFolder, path, error);
    const auto copy = file->copyAside(
        folder.path(), [] { return true; }, error);
    ASSERT_TRUE(copy);
    folder.write("file", "another");
    EXPECT_EQ(contentOf(*copy), "content");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    EXPECT_FALSE(file->copyAside(
        "/nowhere", [] { return true; }, error));
    EXPECT_EQ(error, ENOENT);
}

TEST(SourceFile, ACopyAsideHasWhatTheSizeDoesNotSay)
{
    const test::TemporaryFolder folder;
    int error = 0;
    const auto file = SourceFile::open(SourceFile::kNoFolder, "/proc/version", error);
    ASSERT_TRUE(file && file->state()->size == 0) << "this kernel says how long it is";
    const auto copy = file->copyAside(
        folder.path(), [] { return true; }, error);
    ASSERT_TRUE(copy) << error;
    EXPECT_EQ(contentOf(*copy), contentOf(*file));
    EXPECT_TRUE(contentOf(*copy).starts_with("Linux"));
}

TEST(SourceFile, ACopyAsideEndsThoughTheFileGrowsWithoutEnd)
{
    const test::TemporaryFolder folder;
    constexpr off_t size = 3 << 20;
    const auto path = folder.write("file", "");
    ASSERT_EQ(::truncate(path.c_str(), size), 0);
    int error = 0;
    const auto file = SourceFile::open(SourceFile::kNoFolder, path, error);
    int pieces = 0;
    const auto copy = file->copyAside(
        folder.path(),
        [&] { // grows by more than a piece between two
            EXPECT_EQ(::truncate(path.c_str(), size + (++pieces * off_t{4 << 20})), 0);
            return pieces < 100;
        },
        error);
    ASSERT_TRUE(copy) << error;
    EXPECT_EQ(copy->state()->size, static_cast<std::uint64_t>(size));
}

TEST(SourceFile, RefusesWhatIsNoFileAndTellsOfAWriteThatFails)
{
    const test::TemporaryFolder folder;
    const auto path = folder.write("file", "content");
    int error = 0;
    EXPECT_FALSE(SourceFile::of(FileDescriptor(::open("/dev/full", O_RDWR)), error));
    EXPECT_EQ(error, EINVAL);
    auto file = SourceFile::of(FileDescriptor(::open(path.c_str(), O_RDONLY)), error);
    EXPECT_FALSE(file->writeAt(0, "x", error));
    EXPECT_EQ(error, EBADF);
}

} // namespace
} // namespace stowline::platform
