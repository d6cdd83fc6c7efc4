#include "stowline/service/WebServicesSettings.h"

#include "tests/support/TestBundle.h"

#include <gtest/gtest.h>

#include <thread>

namespace stowline {
namespace {

Dictionary everyTable()
{
    return {{"Templates", Dictionary{{"T", Dictionary{{"body", "b"}}}}},
            {"WebServices", Dictionary{{"M", Dictionary{{"URL", "u"}}}, {"odd", "text"}}},
            {"WebRequests", Dictionary{{"R", Dictionary{{"httpMethod", "GET"}}}}},
            {"URLS", Dictionary{{"ReachabilityHost", "host"}, {"Help", "http://help/"}}}};
}

TEST(WebServicesSettings, AnswersLookupsFromItsTables)
{
    const test::TestBundle bundle(everyTable());
    EXPECT_EQ(WebServicesSettings::template_("T"), (Dictionary{{"body", "b"}}));
    EXPECT_EQ(WebServicesSettings::webMethodInfo("M"), (Dictionary{{"URL", "u"}}));
    EXPECT_EQ(WebServicesSettings::webRequestInfo("R"), (Dictionary{{"httpMethod", "GET"}}));
    EXPECT_EQ(WebServicesSettings::reachabilityHost(), "host");
    EXPECT_EQ(WebServicesSettings::linkForKey("Help"), "http://help/");
    EXPECT_EQ(WebServicesSettings::settingsDictionary(), everyTable());
}

TEST(WebServicesSettings, TablesAreSeparateNameSpaces)
{
    const test::TestBundle bundle(everyTable());
    EXPECT_FALSE(WebServicesSettings::webMethodInfo("R"));
    EXPECT_FALSE(WebServicesSettings::webRequestInfo("T"));
    EXPECT_FALSE(WebServicesSettings::template_("M"));
    EXPECT_FALSE(WebServicesSettings::webMethodInfo("odd")); // no dictionary
}

TEST(WebServicesSettings, AMissingFileStaysMissing)
{
    const test::TestBundle bundle({});
    const auto file = bundle.folder().path() / "Resources/Settings.plist";
    std::filesystem::remove(file);
    EXPECT_FALSE(WebServicesSettings::settingsDictionary());
    EXPECT_FALSE(WebServicesSettings::reachabilityHost());
    bundle.folder().write("Resources/Settings.plist",
                          platform::writeXmlPropertyList(everyTable()).value());
    EXPECT_FALSE(WebServicesSettings::settingsDictionary());
    EXPECT_FALSE(WebServicesSettings::webMethodInfo("M"));
    EXPECT_FALSE(WebServicesSettings::linkForKey("Help"));
}

/// Whether settings are found, with a file "Own.plist" beside, in and above the resource folder.
bool findsSettingsNamed(const char* name)
{
    const test::TestBundle bundle({}, {{"TW_WebServicesSettingsFilename", name}});
    const std::string bytes = platform::writeXmlPropertyList(everyTable()).value();
    bundle.folder().write("Own.plist", bytes);
    bundle.folder().write("Resources/Own.plist", bytes);
    bundle.folder().write("Resources/inner/Own.plist", bytes);
    return WebServicesSettings::settingsDictionary().has_value();
}

TEST(WebServicesSettings, ALeadingSlashIsNotTheRootOfTheFileSystem)
{
    EXPECT_TRUE(findsSettingsNamed("/Own.plist"));
}

TEST(WebServicesSettings, MayLieDeeperInTheResourceFolder)
{
    EXPECT_TRUE(findsSettingsNamed("inner/../inner/Own.plist"));
}

TEST(WebServicesSettings, NoNameLeadsOutOfTheResourceFolder)
{
    EXPECT_FALSE(findsSettingsNamed("../Own.plist"));
}

TEST(WebServicesSettings, NoNameLeadsOutOfTheResourceFolderByARoundabout)
{
    EXPECT_FALSE(findsSettingsNamed("inner/../../Own.plist"));
}

TEST(WebServicesSettings, AFileThatIsNoDictionaryIsAbsent)
{
    const test::TestBundle bundle({});
    bundle.folder().write("Resources/Settings.plist", "<plist><array/></plist>");
    EXPECT_FALSE(WebServicesSettings::settingsDictionary());
}

TEST(WebServicesSettings, AMalformedFileIsAbsent)
{
    const test::TestBundle bundle({});
    bundle.folder().write("Resources/Settings.plist", "<plist><dict>");
    EXPECT_FALSE(WebServicesSettings::webMethodInfo("M"));
}

TEST(WebServicesSettings, ABundleThatNamesNoFileHasNoSettings)
{
    const test::TemporaryFolder folder;
    folder.write("Info.plist", "<plist><dict/></plist>");
    platform::Bundle::useFolder(folder.path());
    EXPECT_FALSE(WebServicesSettings::settingsDictionary());
}

TEST(WebServicesSettings, AnAbsentKeyDoesNotLoadTheFile)
{
    const test::TemporaryFolder folder;
    platform::Bundle::useFolder(folder.path());
    EXPECT_FALSE(WebServicesSettings::linkForKey(std::nullopt));
    // Had the file been looked for, its absence would be kept now.
    folder.write("Info.plist", "<plist><dict><key>TW_WebServicesSettingsFilename</key>"
                               "<string>S.plist</string></dict></plist>");
    folder.write("Resources/S.plist", platform::writeXmlPropertyList(everyTable()).value());
    EXPECT_EQ(WebServicesSettings::linkForKey("Help"), "http://help/");
}

TEST(WebServicesSettings, BinaryFilesAreReadToo)
{
    const test::TestBundle bundle({});
    bundle.folder().write("Resources/Settings.plist",
                          platform::writeBinaryPropertyList(everyTable()).value());
    EXPECT_EQ(WebServicesSettings::reachabilityHost(), "host");
}

TEST(WebServicesSettings, MayBeAskedFirstByManyThreads)
{
    const test::TestBundle bundle(everyTable());
    std::vector<std::thread> threads;
    for (int t = 0; t < 16; ++t)
        threads.emplace_back([] { EXPECT_EQ(WebServicesSettings::reachabilityHost(), "host"); });
    for (auto& thread : threads)
        thread.join();
}

} // namespace
} // namespace stowline
