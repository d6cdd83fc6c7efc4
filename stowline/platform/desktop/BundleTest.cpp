#include "stowline/platform/desktop/Bundle.h"

#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/desktop/NotificationCenter.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>

namespace stowline::platform {
namespace {

TEST(Bundle, IsTheFolderOfTheExecutable)
{
    EXPECT_EQ(Bundle::executableFolder().filename(), "tests");
    EXPECT_EQ(Bundle::folder(), Bundle::executableFolder());
    EXPECT_EQ(Bundle::resourceFolder(), Bundle::folder() / "Resources");
}

TEST(Bundle, LooksUpwardsFromANestedExecutable)
{
    const test::TemporaryFolder folder;
    std::filesystem::create_directories(folder.path() / "App/Contents/MacOS");
    folder.write("App/Contents/MacOS/app", "");
    Bundle::useExecutable(folder.path() / "App/Contents/MacOS/app");
    EXPECT_EQ(Bundle::executableFolder().filename(), "MacOS");
    EXPECT_EQ(Bundle::folder().filename(), "Contents");
}

TEST(Bundle, ResolvesLinksToTheExecutable)
{
    const test::TemporaryFolder folder;
    folder.write("lib/app", "");
    std::filesystem::create_directories(folder.path() / "bin");
    std::filesystem::create_symlink(folder.path() / "lib/app", folder.path() / "bin/app");
    Bundle::useExecutable(folder.path() / "bin/app");
    EXPECT_EQ(Bundle::executableFolder().filename(), "lib");
}

TEST(Bundle, WithoutInfoPlistHasAnEmptyDictionary)
{
    const test::TemporaryFolder folder;
    Bundle::useFolder(folder.path());
    EXPECT_TRUE(Bundle::infoDictionary().empty());
    EXPECT_FALSE(Bundle::infoString("CFBundleName"));
}

TEST(Bundle, MalformedInfoPlistCountsAsEmpty)
{
    const test::TemporaryFolder folder;
    folder.write("Info.plist", "<plist><array/></plist>");
    Bundle::useFolder(folder.path());
    EXPECT_TRUE(Bundle::infoDictionary().empty());
}

TEST(Bundle, KeysOfAnotherTypeAreAbsentAsStrings)
{
    const test::TemporaryFolder folder;
    folder.write("Info.plist", writeXmlPropertyList(Dictionary{{"n", 1}, {"s", "x"}}).value());
    Bundle::useFolder(folder.path());
    EXPECT_FALSE(Bundle::infoString("n"));
    EXPECT_EQ(Bundle::infoString("s"), "x");
}

TEST(Bundle, LocalizesByTheTableOfTheLanguage)
{
    const test::TemporaryFolder folder;
    folder.write("Resources/de.lproj/Localizable.strings",
                 writeXmlPropertyList(Dictionary{{"Hello", "Hallo"}}).value());
    Bundle::useFolder(folder.path());
    ::setenv("LC_ALL", "de_DE.UTF-8", 1);
    EXPECT_EQ(Bundle::localizedString("Bye"), "Bye");
    EXPECT_EQ(Bundle::localizedString("Hello"), "Hallo");
}

TEST(Bundle, LocalizesByTheCommonTable)
{
    const test::TemporaryFolder folder;
    folder.write("Resources/Localizable.strings",
                 writeXmlPropertyList(Dictionary{{"Hello", "Hi"}}).value());
    Bundle::useFolder(folder.path());
    EXPECT_EQ(Bundle::localizedString("Hello"), "Hi");
}

TEST(Files, AtomicWriteLeavesTheOldFileWhenItFails)
{
    const test::TemporaryFolder folder;
    const auto file = folder.path() / "f";
    EXPECT_TRUE(writeFileAtomically(file, "one"));
    EXPECT_TRUE(writeFileAtomically(file, "two"));
    EXPECT_EQ(readFile(file), "two");
    EXPECT_FALSE(writeFileAtomically(folder.path() / "missing" / "f", "x"));
    struct stat status {};
    ::stat(file.c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(Files, ReadsNoFolderAndNothingMissing)
{
    const test::TemporaryFolder folder;
    EXPECT_FALSE(readFile(folder.path()));
    EXPECT_FALSE(readFile(folder.path() / "missing"));
}

TEST(Files, PrivateFoldersAreTheOwnersAlone)
{
    const test::TemporaryFolder folder;
    EXPECT_TRUE(makePrivateFolder(folder.path() / "a" / "b"));
    EXPECT_TRUE(makePrivateFolder(folder.path() / "a" / "b"));
    struct stat status {};
    ::stat((folder.path() / "a").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    folder.write("file", "");
    EXPECT_FALSE(makePrivateFolder(folder.path() / "file"));
}

TEST(Files, StandardFoldersFollowTheEnvironment)
{
    ::setenv("HOME", "/home/ann", 1);
    ::setenv("XDG_STATE_HOME", "/var/ann", 1);
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(stateFolder(), "/var/ann/stowline");
    EXPECT_EQ(configurationFolder(), "/home/ann/.config/stowline");
    ::unsetenv("HOME");
    EXPECT_FALSE(configurationFolder());
}

TEST(ConsoleLog, TakesTextNeverAsAFormat)
{
    std::string seen;
    setConsoleLogSink([&](std::string_view line) { seen = line; });
    consoleLog("100%n %s");
    EXPECT_EQ(seen, "100%n %s");
    setConsoleLogSink({});
    consoleLog("100%n %s"); // to the system log, which must not take it as a format either
}

TEST(ConsoleLog, KeepsControlCharactersOut)
{
    std::string seen;
    setConsoleLogSink([&](std::string_view line) { seen = line; });
    consoleLog("a\x1b[31mb\rc\nd");
    setConsoleLogSink({});
    EXPECT_EQ(seen, "a?[31mb?c\nd");
}

TEST(NotificationCenter, PostsSynchronouslyToThoseWhoObserveTheName)
{
    NotificationCenter center;
    std::vector<std::string> seen;
    const auto token =
        center.addObserver("a", [&](const Notification& n) { seen.push_back("1" + n.sender); });
    center.addObserver("a", [&](const Notification& n) { seen.push_back("2" + n.sender); });
    center.addObserver("b", [&](const Notification&) { seen.emplace_back("b"); });
    center.post({"a", "x", {}});
    center.removeObserver(token);
    center.post({"a", "y", {}});
    EXPECT_EQ(seen, (std::vector<std::string>{"1x", "2x", "2y"}));
}

} // namespace
} // namespace stowline::platform
