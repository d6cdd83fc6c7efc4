// Folders by their names, volumes, and what an item is to people.
#include "stowline/platform/text/PathText.h"
#include "stowline/util/General.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

std::string folderNamed(const std::string& name)
{
    return General::pathRepresentedByDirectoryString(name);
}

/// A home folder for one test, without any configuration of the desktop.
class HomeTest : public testing::Test {
protected:
    HomeTest()
    {
        ::setenv("HOME", home().c_str(), 1);
        ::unsetenv("XDG_CONFIG_HOME");
        ::unsetenv("XDG_DATA_HOME");
    }
    [[nodiscard]] std::string home() const { return home_.path(); }
    void configure(const std::string& content) { home_.write(".config/user-dirs.dirs", content); }

    test::TemporaryFolder home_;
};

TEST_F(HomeTest, NamesResolveBelowTheHomeFolder)
{
    EXPECT_EQ(folderNamed("home directory"), home());
    EXPECT_EQ(folderNamed("trash"), home() + "/.Trash");
    EXPECT_EQ(folderNamed("documents"), home() + "/Documents");
    EXPECT_EQ(folderNamed("library"), home() + "/.local/share");
    EXPECT_EQ(folderNamed("desktop"), home() + "/Desktop");
    EXPECT_EQ(folderNamed("downloads"), home() + "/Downloads");
    EXPECT_EQ(folderNamed("movies"), home() + "/Videos");
    EXPECT_EQ(folderNamed("music"), home() + "/Music");
    EXPECT_EQ(folderNamed("pictures"), home() + "/Pictures");
    EXPECT_EQ(folderNamed("sharedpublic"), home() + "/Public");
}

TEST_F(HomeTest, NamesAreMatchedWholeAndInAnyCase)
{
    for (const char* name : {"Documents", "DOCUMENTS", "documents"})
        EXPECT_EQ(folderNamed(name), home() + "/Documents");
    EXPECT_EQ(folderNamed(" documents"), " documents");
    EXPECT_EQ(folderNamed("documents/"), "documents");
    EXPECT_EQ(folderNamed("Home Directory"), home());
}

TEST_F(HomeTest, TheDesktopsConfigurationDecides)
{
    configure("# people move their folders\n"
              "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente/\"\n"
              "XDG_MUSIC_DIR=\"/srv/music\"\n");
    EXPECT_EQ(folderNamed("documents"), home() + "/Dokumente");
    EXPECT_EQ(folderNamed("music"), "/srv/music");
    EXPECT_EQ(folderNamed("pictures"), home() + "/Pictures");
}

TEST_F(HomeTest, AChangedConfigurationIsSeenAtOnce)
{
    EXPECT_EQ(folderNamed("documents"), home() + "/Documents");
    configure("XDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n");
    EXPECT_EQ(folderNamed("documents"), home() + "/Papers");
}

TEST_F(HomeTest, AFolderThatIsSwitchedOffGivesTheArgument)
{
    configure("XDG_MUSIC_DIR=\"$HOME/\"\n");
    EXPECT_EQ(folderNamed("Music"), "Music");
}

TEST_F(HomeTest, TheDataFolderMayBeElsewhere)
{
    ::setenv("XDG_DATA_HOME", "/srv/data", 1);
    EXPECT_EQ(folderNamed("library"), "/srv/data");
    ::setenv("XDG_DATA_HOME", "relative", 1);
    EXPECT_EQ(folderNamed("library"), home() + "/.local/share");
}

TEST_F(HomeTest, OtherPathsAreStandardized)
{
    EXPECT_EQ(folderNamed("~/Music/../Movies"), home() + "/Movies");
    EXPECT_EQ(folderNamed("~"), home());
    EXPECT_EQ(folderNamed("/a//b/./c/"), "/a/b/c");
    EXPECT_EQ(folderNamed("/a/../../b"), "/b");
    EXPECT_EQ(folderNamed("a/.."), ".");
    EXPECT_EQ(folderNamed("../a"), "../a");
    EXPECT_EQ(folderNamed("../../a/../b"), "../../b");
    EXPECT_EQ(folderNamed("//"), "/");
    EXPECT_EQ(folderNamed(""), "");
    EXPECT_EQ(folderNamed("~nobody-of-this-name/x"), "~nobody-of-this-name/x");
    EXPECT_EQ(folderNamed("~root"), "/root");
    EXPECT_EQ(folderNamed("/\xff/x"), "/\xff/x");
}

TEST_F(HomeTest, AParentBehindALinkIsTheParentOfItsTarget)
{
    fs::create_directories(home_.path() / "real" / "inner");
    fs::create_directory_symlink(home_.path() / "real" / "inner", home_.path() / "link");
    const std::string real = fs::canonical(home_.path() / "real");
    EXPECT_EQ(folderNamed(home() + "/link/../x"), real + "/x");
}

TEST(PathComponents, KeepLeadingAndTrailingSlashes)
{
    using Components = std::vector<std::string>;
    EXPECT_EQ(platform::pathComponents("/a//b/"), (Components{"/", "a", "b", "/"}));
    EXPECT_EQ(platform::pathComponents("a/b"), (Components{"a", "b"}));
    EXPECT_EQ(platform::pathComponents("/"), (Components{"/"}));
    EXPECT_EQ(platform::pathComponents("//"), (Components{"/"}));
    EXPECT_EQ(platform::pathComponents(""), Components{});
    EXPECT_EQ(platform::lastPathComponent("/a/b//"), "b");
    EXPECT_EQ(platform::lastPathComponent("/"), "/");
    EXPECT_EQ(platform::lastPathComponent(""), "");
    EXPECT_EQ(platform::lastPathComponent("b"), "b");
}

TEST(SubPath, IsTheFolderItselfOrWhatLiesBelow)
{
    const test::TemporaryFolder folder;
    const std::string a = folder.path() / "a";
    fs::create_directories(a + "/Documents");
    EXPECT_TRUE(General::path(a + "/Documents/", a));
    EXPECT_TRUE(General::path(a + "/Documents", a + "/"));
    EXPECT_FALSE(General::path(a, a + "/Documents"));
    EXPECT_TRUE(General::path(a, a));
    EXPECT_TRUE(General::path(a + "/", a));
    EXPECT_TRUE(General::path(a, a + "/"));
}

TEST(SubPath, NamesThatOnlyBeginAlikeAreDifferent)
{
    const test::TemporaryFolder folder;
    const std::string a = folder.path() / "a";
    fs::create_directories(a + "b");
    fs::create_directories(a);
    EXPECT_FALSE(General::path(a + "b", a));
}

TEST(SubPath, CaseCountsAndMissingItemsAreNowhere)
{
    const test::TemporaryFolder folder;
    fs::create_directories(folder.path() / "A" / "x");
    fs::create_directories(folder.path() / "a");
    EXPECT_FALSE(General::path(folder.path() / "A" / "x", folder.path() / "a"));
    EXPECT_FALSE(General::path(folder.path() / "a" / "missing", folder.path() / "a"));
    EXPECT_FALSE(General::path(folder.path() / "a", folder.path() / "missing"));
    EXPECT_FALSE(General::path("", "/"));
    EXPECT_FALSE(General::path("/", ""));
}

TEST(SubPath, DotsAreNotResolvedAndRelativePathsAreRefused)
{
    const test::TemporaryFolder folder;
    fs::create_directories(folder.path() / "a" / "b");
    EXPECT_FALSE(General::path(folder.path() / "." / "a", folder.path() / "a"));
    EXPECT_TRUE(General::path(folder.path() / "a" / ".." / "a", folder.path() / "a"));
    fs::current_path(folder.path());
    EXPECT_FALSE(General::path("a/b", "a"));
}

TEST(SubPath, TheRootHoldsWhatIsOnItsVolume)
{
    EXPECT_TRUE(General::path("/etc", "/"));
    EXPECT_TRUE(General::path("/", "/"));
    EXPECT_FALSE(General::path("/proc/self", "/"));
    EXPECT_TRUE(General::path("/proc/self", "/proc"));
}

TEST(Volume, NumbersAreStableAndNeverZeroForItemsThatExist)
{
    const auto root = General::volumeRefNumFromPath("/");
    EXPECT_NE(root, 0);
    EXPECT_EQ(General::volumeRefNumFromPath("/etc"), root);
    const auto proc = General::volumeRefNumFromPath("/proc");
    EXPECT_NE(proc, 0);
    EXPECT_NE(proc, root);
    EXPECT_EQ(General::volumeRefNumFromPath("/proc/version"), proc);
    EXPECT_EQ(General::volumeRefNumFromPath("/"), root);
    EXPECT_TRUE(General::isSystemVolumePath("/etc"));
    EXPECT_FALSE(General::isSystemVolumePath("/proc"));
}

TEST(Volume, OfAMissingItemIsUnknown)
{
    const std::string tooLong = "/" + std::string(5000, 'x');
    for (const std::string& path : {"/no/such/item"s, ""s, tooLong, "/etc\0x"s}) {
        EXPECT_EQ(General::volumeRefNumFromPath(path), 0);
        EXPECT_FALSE(General::volumeNameFromPath(path));
        EXPECT_FALSE(General::volumePathFromItemPath(path));
        EXPECT_FALSE(General::isSystemVolumePath(path));
    }
}

TEST(Volume, TheRootIsMountedAtTheRoot)
{
    EXPECT_EQ(General::volumePathFromItemPath("/"), "/");
    EXPECT_EQ(General::volumePathFromItemPath("/proc/version"), "/proc");
    EXPECT_EQ(General::volumeNameFromPath("/proc/version"), "proc");
    EXPECT_TRUE(General::volumeNameFromPath("/"));
}

TEST(Volume, MountPathsMayHoldAnyCharacter)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const test::TemporaryFolder folder;
    for (const std::string name :
         {"My Disk", "tab\there", "line\nend", "back\\slash", "\\040", "ü#"}) {
        const std::string place = folder.path() / name;
        const auto mount = test::Mount::memory(place);
        folder.write(name + "/file", "x");
        EXPECT_EQ(General::volumePathFromItemPath(place + "/file"), place);
        EXPECT_EQ(General::volumeNameFromPath(place + "/file"), name);
        EXPECT_NE(General::volumeRefNumFromPath(place), General::volumeRefNumFromPath("/"));
        EXPECT_FALSE(General::path(place + "/file", "/"));
    }
}

TEST(Volume, OfAFolderShownTwiceIsMountedWhereThePathGoes)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const test::TemporaryFolder folder;
    const std::string real = folder.path() / "real";
    const std::string shown = folder.path() / "shown";
    folder.write("real/file", "x");
    const auto mount = test::Mount::again(real, shown);
    EXPECT_EQ(General::volumePathFromItemPath(shown + "/file"), shown);
    EXPECT_NE(General::volumePathFromItemPath(real + "/file"), real);
    EXPECT_EQ(General::volumeRefNumFromPath(shown), General::volumeRefNumFromPath(real));
}

TEST(Volume, TheUpperOfTwoMountsAtOnePlaceCounts)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const test::TemporaryFolder folder;
    const std::string place = folder.path() / "place";
    const auto lower = test::Mount::memory(place);
    const auto lowerNumber = General::volumeRefNumFromPath(place);
    const auto upper = test::Mount::memory(place);
    EXPECT_NE(General::volumeRefNumFromPath(place), lowerNumber);
    EXPECT_EQ(General::volumePathFromItemPath(place), place);
}

TEST(Volume, ALabelIsItsName)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const test::TemporaryFolder folder;
    const std::string place = folder.path() / "place";
    const auto disk = test::Mount::memory(place);
    struct stat found = {};
    ASSERT_EQ(::stat(place.c_str(), &found), 0);
    // A device manager of the test's own.
    const auto devices = test::Mount::memory("/dev");
    fs::create_directories("/dev/disk/by-label");
    ASSERT_EQ(::mknod("/dev/other", S_IFBLK | 0600, makedev(0, 0)), 0);
    ASSERT_EQ(::mknod("/dev/disk0", S_IFBLK | 0600, found.st_dev), 0);
    fs::create_symlink("../../other", "/dev/disk/by-label/Other");
    fs::create_symlink("../../disk0", "/dev/disk/by-label/Ann\\x27s\\x20Disk\\x");
    EXPECT_EQ(General::volumeNameFromPath(place), "Ann's Disk\\x");
}

TEST(Volume, OfALinkIsWhereTheLinkLies)
{
    const test::TemporaryFolder folder;
    fs::create_symlink("/proc", folder.path() / "link");
    EXPECT_EQ(General::volumeRefNumFromPath(folder.path() / "link"),
              General::volumeRefNumFromPath(folder.path()));
    fs::create_symlink("nowhere", folder.path() / "dangling");
    EXPECT_NE(General::volumeRefNumFromPath(folder.path() / "dangling"), 0);
}

TEST(Hidden, BeginsWithAFullStopWithoutALookAtTheDisk)
{
    EXPECT_TRUE(General::isItemHidden("/tmp/.profile"));
    EXPECT_TRUE(General::isItemHidden("/no/such/folder/.x/"));
    EXPECT_FALSE(General::isItemHidden(""));
    EXPECT_FALSE(General::isItemHidden("/"));
    EXPECT_FALSE(General::isItemHidden("/no/such/item"));
    EXPECT_FALSE(General::isItemHidden("/etc/hostname"));
}

TEST(Hidden, IsWhatTheFolderLists)
{
    const test::TemporaryFolder folder;
    folder.write(".hidden", "secret\nmy folder\n~odd\nlast");
    fs::create_directory(folder.path() / "my folder");
    EXPECT_TRUE(General::isItemHidden(folder.path() / "my folder"));
    for (const char* name : {"secret", "~odd", "last"}) {
        const auto file = folder.write(name, "x");
        EXPECT_TRUE(General::isItemHidden(file)) << name;
    }
    EXPECT_FALSE(General::isItemHidden(folder.write("secre", "x")));
    EXPECT_FALSE(General::isItemHidden(folder.write("sub/secret", "x")));
    fs::remove(folder.path() / "last");
    EXPECT_FALSE(General::isItemHidden(folder.path() / "last"));
    fs::current_path(folder.path());
    EXPECT_TRUE(General::isItemHidden("secret"));
    EXPECT_TRUE(General::isItemHidden(folder.path().string() + "/my folder/"));
}

TEST(Hidden, AListingThatIsAPipeDoesNotMakeItWait)
{
    const test::TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder.path() / ".hidden").c_str(), 0600), 0);
    EXPECT_FALSE(General::isItemHidden(folder.write("x", "x")));
}

TEST(Package, IsAFolderWithABundleExtension)
{
    const test::TemporaryFolder folder;
    for (const char* name : {"Some.app", "Photos.PhotosLibrary", "a.b.bundle"}) {
        fs::create_directory(folder.path() / name);
        EXPECT_TRUE(General::isPathPackage(folder.path() / name)) << name;
    }
    for (const char* name : {"folder", "app", ".app", "Some.app.txt", "Some."}) {
        fs::create_directory(folder.path() / name);
        EXPECT_FALSE(General::isPathPackage(folder.path() / name)) << name;
    }
    EXPECT_FALSE(General::isPathPackage(folder.write("File.app", "x")));
    EXPECT_FALSE(General::isPathPackage(folder.path() / "Missing.app"));
    EXPECT_FALSE(General::isPathPackage(""));
    fs::create_directory_symlink(folder.path() / "Some.app", folder.path() / "Link.app");
    EXPECT_FALSE(General::isPathPackage(folder.path() / "Link.app"));
}

TEST(Package, HoldsWhatLiesBelowAndItself)
{
    const test::TemporaryFolder folder;
    const std::string applications = folder.path() / "Applications";
    const auto info = folder.write("Applications/Some.app/Contents/Info.plist", "x");
    EXPECT_TRUE(General::isItemInPackage(info));
    EXPECT_TRUE(General::isItemInPackage(applications + "/Some.app"));
    EXPECT_TRUE(General::isItemInPackage(applications + "//Some.app//Contents"));
    EXPECT_TRUE(General::isItemInPackage(applications + "/Some.app/missing"));
    EXPECT_FALSE(General::isItemInPackage(applications));
    EXPECT_FALSE(General::isItemInPackage(""));
    EXPECT_FALSE(General::isItemInPackage("/"));
}

TEST(PlainFile, IsARegularFileOnly)
{
    const test::TemporaryFolder folder;
    const auto file = folder.write("file", "x");
    EXPECT_TRUE(General::isItemPlainFile(file));
    fs::create_symlink(file, folder.path() / "link");
    EXPECT_FALSE(General::isItemPlainFile(folder.path() / "link"));
    EXPECT_FALSE(General::isItemPlainFile(folder.path()));
    EXPECT_FALSE(General::isItemPlainFile("/dev/null"));
    EXPECT_FALSE(General::isItemPlainFile(folder.path() / "missing"));
    EXPECT_FALSE(General::isItemPlainFile(""));
    EXPECT_FALSE(General::isItemPlainFile(file.string() + "\0"s));
}

} // namespace
} // namespace stowline
