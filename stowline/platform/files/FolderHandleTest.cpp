#include "stowline/platform/files/FolderHandle.h"

#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline::platform {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

FolderHandle opened(const fs::path& path)
{
    int error = 0;
    auto folder = FolderHandle::root(error);
    for (const fs::path& name : path.relative_path())
        folder = folder->folder(name, error);
    return std::move(*folder);
}

class FolderHandleTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder_;
    FolderHandle handle_ = opened(folder_.path());
    int error_ = 0;
};

TEST_F(FolderHandleTest, ListsNamesOfAnyBytesInTheirOrder)
{
    for (const char* name : {"b", "a b", "\xff\xfe", "-x", "a\nb", ".hidden"})
        folder_.write(name, "");
    const Names names{"-x", ".hidden", "a\nb", "a b", "b", "\xff\xfe"};
    EXPECT_EQ(handle_.names(error_), names);
    EXPECT_EQ(error_, 0);
    EXPECT_EQ(handle_.names(error_), names) << "a second time";
}

TEST_F(FolderHandleTest, TellsEverythingOfAFile)
{
    const auto file = folder_.write("f", "12345");
    fs::create_hard_link(file, folder_.path() / "g");
    ASSERT_EQ(::chown(file.c_str(), 12, 34), 0);
    ASSERT_EQ(::chmod(file.c_str(), 04751), 0);
    const struct timespec times[2] = {{1, 2}, {-3, 999'999'999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    struct stat expected = {};
    ASSERT_EQ(::lstat(file.c_str(), &expected), 0);
    const auto status = handle_.statusOf("f", error_);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->type, ItemType::file);
    EXPECT_EQ(status->size, 5U);
    EXPECT_EQ(status->modified.seconds, -3);
    EXPECT_EQ(status->modified.nanoseconds, 999'999'999U);
    EXPECT_EQ(status->changed.seconds, expected.st_ctim.tv_sec);
    EXPECT_EQ(status->changed.nanoseconds, static_cast<std::uint32_t>(expected.st_ctim.tv_nsec));
    EXPECT_EQ(status->mode, 04751U);
    EXPECT_EQ(status->owner, 12U);
    EXPECT_EQ(status->group, 34U);
    EXPECT_EQ(status->device, expected.st_dev);
    EXPECT_EQ(status->inode, expected.st_ino);
    EXPECT_EQ(status->links, 2U);
    EXPECT_EQ(status->deviceNumber, 0U);
    EXPECT_TRUE(status->isSameItemAs(*handle_.statusOf("g", error_)));
}

TEST_F(FolderHandleTest, KnowsEveryTypeOfItem)
{
    const auto path = [&](const char* name) { return (folder_.path() / name).string(); };
    fs::create_directory(path("folder"));
    fs::create_symlink("f", path("link"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    ASSERT_EQ(::mknod(path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(handle_.statusOf("folder", error_)->type, ItemType::folder);
    EXPECT_EQ(handle_.statusOf("folder", error_)->size, 0U);
    EXPECT_EQ(handle_.statusOf("link", error_)->type, ItemType::link);
    EXPECT_EQ(handle_.statusOf("link", error_)->size, 0U);
    EXPECT_EQ(handle_.statusOf("pipe", error_)->type, ItemType::pipe);
    EXPECT_EQ(handle_.statusOf("socket", error_)->type, ItemType::socket);
    const auto null = opened("/dev").statusOf("null", error_);
    EXPECT_EQ(null->type, ItemType::characterDevice);
    EXPECT_EQ(null->deviceNumber, makedev(1, 3));
    if (::mknod(path("block").c_str(), S_IFBLK | 0600, makedev(7, 9)) == 0) {
        EXPECT_EQ(handle_.statusOf("block", error_)->type, ItemType::blockDevice);
        EXPECT_EQ(handle_.statusOf("block", error_)->deviceNumber, makedev(7, 9));
    }
}

TEST_F(FolderHandleTest, SaysWhyAnItemCannotBeLookedAt)
{
    EXPECT_FALSE(handle_.statusOf("none", error_));
    EXPECT_EQ(error_, ENOENT);
    for (const std::string name : {"", "a/b", "/"}) {
        error_ = 0;
        EXPECT_FALSE(handle_.statusOf(name, error_));
        EXPECT_NE(error_, 0) << name;
    }
    EXPECT_FALSE(handle_.statusOf(std::string("a\0b", 3), error_));
    EXPECT_EQ(error_, EINVAL);
}

TEST_F(FolderHandleTest, FollowsNoLinkIntoAFolder)
{
    fs::create_directory_symlink("/etc", folder_.path() / "link");
    folder_.write("file", "");
    ASSERT_EQ(::mkfifo((folder_.path() / "pipe").c_str(), 0600), 0);
    for (const char* name : {"link", "file", "pipe"}) {
        EXPECT_FALSE(handle_.folder(name, error_)) << name;
        EXPECT_EQ(error_, ENOTDIR) << name;
    }
    EXPECT_FALSE(handle_.folder("../etc", error_));
    EXPECT_EQ(error_, EINVAL);
}

TEST_F(FolderHandleTest, TellsWhereALinkLeadsToHoweverLong)
{
    const std::string far(3000, 'x');
    fs::create_symlink(far, folder_.path() / "far");
    fs::create_symlink("\xff \n", folder_.path() / "near");
    EXPECT_EQ(handle_.linkTarget("far", error_), far);
    EXPECT_EQ(handle_.linkTarget("near", error_), "\xff \n");
    folder_.write("file", "");
    EXPECT_FALSE(handle_.linkTarget("file", error_));
    EXPECT_EQ(error_, EINVAL);
}

TEST_F(FolderHandleTest, ReadsExtendedAttributesOfTheItemItself)
{
    const auto file = folder_.write("file", "");
    fs::create_symlink("file", folder_.path() / "link");
    const std::string large(3000, 'v');
    if (::setxattr(file.c_str(), "user.b", large.data(), large.size(), 0) != 0)
        GTEST_SKIP() << "The folder for temporary files keeps no attributes.";
    ASSERT_EQ(::setxattr(file.c_str(), "user.a", "\0x", 2, 0), 0);
    ASSERT_EQ(::setxattr(folder_.path().c_str(), "user.own", "", 0, 0), 0);
    using Attributes = std::vector<NamedAttribute>;
    EXPECT_EQ(handle_.attributesOf("file", error_),
              (Attributes{{"user.a", std::string("\0x", 2)}, {"user.b", large}}));
    EXPECT_EQ(handle_.attributesOf("link", error_), Attributes{});
    EXPECT_EQ(handle_.attributesOf(".", error_), (Attributes{{"user.own", ""}}));
    EXPECT_FALSE(handle_.attributesOf("none", error_));
    EXPECT_EQ(error_, ENOENT);
}

TEST_F(FolderHandleTest, HasNoAttributesWhereNoneAreKept)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto mount = test::Mount::plainMemory(folder_.path() / "plain");
    folder_.write("plain/file", "");
    const auto attributes = opened(folder_.path() / "plain").attributesOf("file", error_);
    ASSERT_TRUE(attributes) << error_;
    EXPECT_TRUE(attributes->empty());
}

TEST_F(FolderHandleTest, KnowsFileSystemsThatHoldNoFiles)
{
    EXPECT_TRUE(opened("/proc").fileSystem(error_)->isPseudo);
    EXPECT_TRUE(opened("/sys").fileSystem(error_)->isPseudo);
    EXPECT_FALSE(handle_.fileSystem(error_)->isPseudo);
    EXPECT_FALSE(handle_.fileSystem(error_)->isNetwork);
}

TEST_F(FolderHandleTest, StaysInItsFolderWhenThatIsMovedAndFindsTheWayUp)
{
    fs::create_directories(folder_.path() / "a/b");
    const auto b = opened(folder_.path() / "a/b");
    fs::rename(folder_.path() / "a/b", folder_.path() / "c");
    folder_.write("c/file", "");
    EXPECT_EQ(b.names(error_), Names{"file"});
    EXPECT_TRUE(b.parent(error_)->status(error_)->isSameItemAs(*handle_.status(error_)));
}

TEST_F(FolderHandleTest, MayBeEnteredWithoutBeingRead)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Only root can become somebody else.";
    folder_.write("dark/known", "x");
    ASSERT_EQ(::chmod((folder_.path() / "dark").c_str(), 0711), 0);
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setresuid(65534, 65534, 65534) != 0)
            ::_exit(9);
        const auto dark = handle_.folder("dark", error_);
        if (!dark)
            ::_exit(1);
        if (!dark->names(error_).empty() || error_ != EACCES)
            ::_exit(2);
        ::_exit(dark->statusOf("known", error_) ? 0 : 3);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace stowline::platform
