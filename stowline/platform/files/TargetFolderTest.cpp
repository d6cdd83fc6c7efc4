#include "stowline/platform/files/TargetFolder.h"

#include "tests/support/MountNamespace.h"
#include "tests/support/SystemCallFilter.h"
#include "tests/support/TemporaryFolder.h"

#include "stowline/platform/text/SystemErrorText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace stowline;
using namespace stowline::platform;
namespace fs = std::filesystem;

class TargetFolderTest : public testing::Test {
protected:
    TargetFolderTest() { fs::create_directories(folder.path() / "in/deep"); }

    [[nodiscard]] TargetFolder target() const
    {
        int unimportant = 0;
        return TargetFolder::open(folder.path() / "in", false, unimportant).value();
    }

    test::TemporaryFolder folder;
    int error = 0;
};

TEST_F(TargetFolderTest, OpensFoldersBelowAndNothingElse)
{
    const TargetFolder in = target();
    EXPECT_TRUE(in.below("", error));
    EXPECT_TRUE(in.below("deep", error));
    fs::create_directories(folder.path() / "out");
    fs::create_directory_symlink(folder.path() / "out", folder.path() / "in/way-out");
    fs::create_directory_symlink("deep", folder.path() / "in/inside");
    folder.write("in/file", "x");
    for (const std::string path : {"..", "../out", "deep/../../out", "way-out", "inside", "/",
                                   "/etc", "way-out/..", "file", "missing"})
        EXPECT_FALSE(in.below(path, error)) << path;
    EXPECT_FALSE(in.below("way-out", error));
    EXPECT_TRUE(error == ELOOP || error == ENOTDIR) << error;
}

TEST_F(TargetFolderTest, OpensFoldersThroughNoMountWhenToldSo)
{
    if (const auto why = test::enterMountNamespace())
        GTEST_SKIP() << *why;
    fs::create_directories(folder.path() / "out");
    folder.write("in/file", "x");
    const auto disk = test::Mount::memory(folder.path() / "in/disk");
    const auto again = test::Mount::again(folder.path() / "out", folder.path() / "in/again");
    fs::create_directories(folder.path() / "in/disk/below");
    const auto expectIt = [this] {
        const TargetFolder in = target();
        EXPECT_TRUE(in.belowOnSameMount("", error));
        EXPECT_TRUE(in.belowOnSameMount("deep", error));
        for (const char* path : {"disk", "disk/below", "again"}) {
            EXPECT_TRUE(in.below(path, error)) << path;
            EXPECT_FALSE(in.belowOnSameMount(path, error)) << path;
            EXPECT_EQ(error, EXDEV) << path;
        }
        EXPECT_TRUE(in.isMountPoint("disk"));
        EXPECT_TRUE(in.isMountPoint("again"));
        EXPECT_TRUE(in.below("again", error).value().isMountPoint(""));
        EXPECT_FALSE(in.isMountPoint("deep"));
        EXPECT_FALSE(in.isMountPoint("file"));
        EXPECT_FALSE(in.isMountPoint(""));
    };
    expectIt();
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
        EXPECT_EQ(test::loseSystemCalls({SYS_openat2}), std::nullopt); // as before Linux 5.6
        expectIt();
    }));
}

TEST_F(TargetFolderTest, StaysInItsFolderWhenThePathIsSwapped)
{
    const TargetFolder in = target();
    const auto deep = in.below("deep", error).value();
    fs::create_directories(folder.path() / "out");
    fs::rename(folder.path() / "in/deep", folder.path() / "moved");
    fs::create_directory_symlink(folder.path() / "out", folder.path() / "in/deep");
    EXPECT_EQ(deep.makeFolder("made", 0700), 0);
    EXPECT_TRUE(fs::exists(folder.path() / "moved/made"));
    EXPECT_TRUE(fs::is_empty(folder.path() / "out"));
}

TEST_F(TargetFolderTest, WritesThroughNoLinkAndNoOtherNameOfAFile)
{
    const TargetFolder in = target();
    folder.write("precious", "precious");
    fs::create_symlink(folder.path() / "precious", folder.path() / "in/link");
    EXPECT_FALSE(in.openOrMakeFile("link", error));
    EXPECT_FALSE(in.openFile("link", error));
    fs::create_hard_link(folder.path() / "precious", folder.path() / "in/other");
    EXPECT_FALSE(in.openOrMakeFile("other", error));
    ASSERT_EQ(mkfifo((folder.path() / "in/pipe").c_str(), 0600), 0);
    EXPECT_FALSE(in.openFile("pipe", error));
    EXPECT_NE(in.setMode("link", 0600), 0);
    EXPECT_EQ(in.item("link", error)->setModified(5, 7), 0);
    EXPECT_EQ(in.find("link", error)->modifiedSeconds, 5);
    struct stat untouched {};
    ASSERT_EQ(stat((folder.path() / "precious").c_str(), &untouched), 0);
    EXPECT_NE(untouched.st_mtim.tv_sec, 5);
}

TEST_F(TargetFolderTest, LeavesHolesForZerosAndEndsBehindThem)
{
    const TargetFolder in = target();
    const auto file = in.openOrMakeFile("file", error).value();
    std::string bytes(1 << 20, '\0');
    bytes.replace(5000, 3, "abc");
    bytes.replace(700000, 1, "z");
    EXPECT_EQ(file.writeAt(0, bytes.substr(0, 4097)), 0);
    EXPECT_EQ(file.status()->size, 4097U);
    EXPECT_EQ(file.writeAt(4097, bytes.substr(4097)), 0);
    std::string read(bytes.size() + 1, 'x');
    EXPECT_EQ(file.readAt(0, read), bytes.size());
    read.resize(bytes.size());
    EXPECT_TRUE(read == bytes);
    struct stat found {};
    ASSERT_EQ(stat((folder.path() / "in/file").c_str(), &found), 0);
    EXPECT_LE(found.st_blocks * 512, 64 << 10);
}

TEST_F(TargetFolderTest, PutsMetadataOnEveryKindOfItem)
{
    const TargetFolder in = target();
    ASSERT_EQ(in.makeLink("link", "nowhere \xff"), 0);
    ASSERT_EQ(in.makeNode("pipe", TargetKind::pipe, 0), 0);
    ASSERT_EQ(in.makeNode("socket", TargetKind::socket, 0), 0);
    EXPECT_EQ(in.linkTarget("link", error), "nowhere \xff");
    EXPECT_EQ(in.find("socket", error)->kind, TargetKind::socket);
    EXPECT_EQ(in.setMode("pipe", 0640), 0);
    EXPECT_EQ(in.item("pipe", error)->setModified(-3, 999999999), 0);
    const auto pipe = in.find("pipe", error).value();
    EXPECT_EQ(pipe.kind, TargetKind::pipe);
    EXPECT_EQ(pipe.mode, 0640U);
    EXPECT_EQ(pipe.modifiedSeconds, -3);
    EXPECT_EQ(pipe.modifiedNanoseconds, 999999999U);
    EXPECT_EQ(in.setMode("", 01711), 0);
    EXPECT_EQ(in.item("", error)->setModified(1, 2), 0);
    EXPECT_EQ(in.status()->mode, 01711U);
    EXPECT_EQ(in.status()->modifiedNanoseconds, 2U);
    folder.write("in/file", "x");
    if (const int refused =
            in.item("file", error)->setAttribute("user.odd", std::string_view("\0\xff", 2)))
        GTEST_SKIP() << "no extended attributes here: " << systemErrorText(refused);
    EXPECT_EQ(in.item("file", error)->attributes(error)->at("user.odd"), std::string("\0\xff", 2));
    EXPECT_EQ(in.item("file", error)->removeAttribute("user.odd"), 0);
    EXPECT_FALSE(in.item("file", error)->attributes(error)->contains("user.odd"));
}

TEST_F(TargetFolderTest, PutsMetadataOnTheItemThatItHoldsWhateverTakesItsName)
{
    const TargetFolder in = target();
    folder.write("in/file", "x");
    ASSERT_EQ(in.makeNode("pipe", TargetKind::pipe, 0), 0);
    for (const std::string name : {"file", "pipe"}) {
        const auto item = in.item(name, error).value();
        EXPECT_TRUE(in.isNameOf(item, name));
        ASSERT_EQ(in.rename(name, name + " moved"), 0);
        EXPECT_FALSE(in.isNameOf(item, name));
        folder.write("in/" + name, "another");
        ASSERT_EQ(in.setMode(name, 0600), 0);
        EXPECT_FALSE(in.isNameOf(item, name));
        EXPECT_TRUE(in.isNameOf(item, name + " moved"));
        EXPECT_EQ(item.setMode(0751), 0);
        EXPECT_EQ(item.setModified(5, 7), 0);
        EXPECT_EQ(in.find(name, error)->mode, 0600U);
        EXPECT_NE(in.find(name, error)->modifiedSeconds, 5);
        EXPECT_EQ(in.find(name + " moved", error)->mode, 0751U);
        EXPECT_EQ(in.find(name + " moved", error)->modifiedSeconds, 5);
        ASSERT_EQ(in.makeHardLink(item, name + " again"), 0);
        EXPECT_TRUE(in.isNameOf(item, name + " again"));
    }
}

TEST_F(TargetFolderTest, ListsNamesAgainAndAgain)
{
    const TargetFolder in = target();
    EXPECT_EQ(in.names(error), std::vector<std::string>{"deep"});
    EXPECT_EQ(in.names(error), std::vector<std::string>{"deep"});
    EXPECT_FALSE(TargetFolder::open(folder.path() / "new/er", false, error));
    EXPECT_EQ(error, ENOENT);
    EXPECT_TRUE(TargetFolder::open(folder.path() / "new/er", true, error));
}

} // namespace
