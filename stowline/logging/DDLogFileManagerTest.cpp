// Names, order and number of log files.
#include "stowline/logging/DDLogFileManager.h"

#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/AppendFile.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <thread>

namespace stowline {
namespace {

namespace fs = std::filesystem;

/// Keeps the lines that go to the machine's log.
class ConsoleCatcher {
public:
    ConsoleCatcher()
    {
        platform::setConsoleLogSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~ConsoleCatcher() { platform::setConsoleLogSink({}); }
    std::vector<std::string> lines;
};

class LogFiles : public testing::Test {
protected:
    /// Makes a file that is newer than all before it.
    std::string make(const std::string& name, bool archived = true)
    {
        // File systems count time in steps of a few milliseconds.
        std::this_thread::sleep_for(std::chrono::milliseconds(12));
        const std::string path = folder_.write(name, "line\n");
        if (archived)
            DDLogFileInfo(path).setArchived(true);
        return path;
    }

    test::TemporaryFolder folder_;
    const std::shared_ptr<DDLogFileManagerDefault> manager_ =
        std::make_shared<DDLogFileManagerDefault>(folder_.path());
};

TEST(LogFileNames, AreLogAndSixUpperCaseHexadecimalDigits)
{
    for (const char* name : {"log-0123AB.txt", "log-ABCDEF", "log-ABCDEF.archived.txt"})
        EXPECT_TRUE(DDLogFileManagerDefault::isLogFile(name)) << name;
    for (const char* name : {"log-0123ab.txt", "log-ABCDE", "Log-ABCDEF.txt", "log-ABCDEG.txt",
                             "xlog-ABCDEF.txt", "log_ABCDEF.txt", "", "log-ABCD F.txt"})
        EXPECT_FALSE(DDLogFileManagerDefault::isLogFile(name)) << name;
}

TEST(LogFileNames, ShortUuidsAreSixDigits)
{
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(DDLogFileManagerDefault::isLogFile(
            "log-" + DDLogFileManagerDefault::generateShortUUID()));
}

TEST(LogsDirectory, IsInTheLibraryFolderUnlessThereIsNone)
{
    ::setenv("XDG_DATA_HOME", "/srv/data", 1);
    EXPECT_EQ(DDLogFileManagerDefault::defaultLogsDirectory(), "/srv/data/Logs/logging_tests");
}

TEST(LogsDirectory, IsMadeForItsOwnerWhenFirstUsed)
{
    const test::TemporaryFolder folder;
    const DDLogFileManagerDefault manager(folder.path() / "a" / "b");
    EXPECT_FALSE(fs::exists(folder.path() / "a"));
    EXPECT_EQ(manager.logsDirectory(), folder.path() / "a" / "b");
    EXPECT_EQ(fs::status(folder.path() / "a" / "b").permissions(), fs::perms::owner_all);
}

TEST(LogsDirectory, ThatCannotBeMadeIsTold)
{
    const ConsoleCatcher console;
    const DDLogFileManagerDefault manager("/proc/nowhere");
    EXPECT_TRUE(manager.unsortedLogFilePaths().empty());
    EXPECT_EQ(console.lines,
              std::vector<std::string>{
                  "DDFileLogManagerDefault: Error creating logsDirectory: /proc/nowhere"});
}

TEST_F(LogFiles, AreListedNewestFirst)
{
    const auto first = make("log-AAAAAA.txt");
    const auto second = make("log-000000.txt");
    folder_.write("notes.txt", "no log");
    fs::create_directory(folder_.path() / "log-BBBBBB");
    fs::create_symlink(first, folder_.path() / "log-CCCCCC.txt");
    EXPECT_EQ(manager_->sortedLogFilePaths(), (std::vector{second, first}));
    EXPECT_EQ(manager_->sortedLogFileNames(),
              (std::vector<std::string>{"log-000000.txt", "log-AAAAAA.txt"}));
    EXPECT_EQ(manager_->unsortedLogFilePaths().size(), 2U);
    EXPECT_EQ(manager_->unsortedLogFileNames().size(), 2U);
}

TEST_F(LogFiles, NewOnesAreEmptyAndForTheirOwner)
{
    const auto path = manager_->createNewLogFile();
    ASSERT_TRUE(path);
    EXPECT_TRUE(DDLogFileManagerDefault::isLogFile(fs::path(*path).filename().string()));
    EXPECT_TRUE(path->ends_with(".txt"));
    EXPECT_EQ(fs::file_size(*path), 0U);
    EXPECT_EQ(fs::status(*path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(LogFiles, OfSixArchivedAndACurrentOneTheOldestGoes)
{
    const auto oldest = make("log-000000.txt");
    for (const char* name :
         {"log-000001.txt", "log-000002.txt", "log-000003.txt", "log-000004.txt", "log-000005.txt"})
        make(name);
    const auto current = make("log-000006.txt", false);
    manager_->deleteOldLogFiles();
    EXPECT_FALSE(fs::exists(oldest));
    EXPECT_TRUE(fs::exists(current));
    EXPECT_EQ(manager_->unsortedLogFilePaths().size(), 6U);
}

TEST_F(LogFiles, WithoutACurrentOneAllArchivedAreCounted)
{
    for (const char* name : {"log-000001.txt", "log-000002.txt", "log-000003.txt"})
        make(name);
    manager_->setMaximumNumberOfLogFiles(2);
    DDLog::flushLog();
    EXPECT_EQ(manager_->maximumNumberOfLogFiles(), 2U);
    EXPECT_EQ(manager_->sortedLogFileNames(),
              (std::vector<std::string>{"log-000003.txt", "log-000002.txt"}));
}

TEST_F(LogFiles, ThatAreInUseStay)
{
    const auto used = make("log-000001.txt");
    make("log-000002.txt");
    const auto open = platform::AppendFile::open(used);
    ASSERT_TRUE(open);
    manager_->setMaximumNumberOfLogFiles(0);
    DDLog::flushLog();
    EXPECT_EQ(manager_->sortedLogFileNames(), std::vector<std::string>{"log-000001.txt"});
}

TEST_F(LogFiles, InfoIsReadOnceAndForgottenByReset)
{
    const auto path = folder_.write("log-000001.txt", "12345");
    DDLogFileInfo info = DDLogFileInfo::logFileWithPath(path);
    EXPECT_EQ(info.fileName(), "log-000001.txt");
    EXPECT_EQ(info.fileSize(), 5U);
    EXPECT_FALSE(info.isArchived());
    EXPECT_GE(info.age(), 0);
    EXPECT_LT(info.age(), 60);
    folder_.write("log-000001.txt", "1234567");
    DDLogFileInfo(path).setArchived(true);
    EXPECT_EQ(info.fileSize(), 5U);
    EXPECT_FALSE(info.isArchived());
    info.reset();
    EXPECT_EQ(info.fileSize(), 7U);
    EXPECT_TRUE(info.isArchived());
    EXPECT_LE(*info.creationDate(), *info.modificationDate());
    EXPECT_TRUE(info.isEqual(DDLogFileInfo(path)));
    EXPECT_FALSE(info.isEqual(DDLogFileInfo("/elsewhere")));
    for (const char* key :
         {"filePath = ", "fileName = log-000001.txt; ", "fileAttributes = {",
          "creationDate = ", "modificationDate = ", "fileSize = 7; ", "age = ", "isArchived = 1; "})
        EXPECT_NE(info.description().find(key), std::string::npos) << key;
}

TEST_F(LogFiles, InfoOfAMissingFileIsEmpty)
{
    const DDLogFileInfo info(folder_.path() / "missing");
    EXPECT_EQ(info.fileSize(), 0U);
    EXPECT_EQ(info.age(), 0);
    EXPECT_FALSE(info.creationDate());
    EXPECT_FALSE(info.isArchived());
    EXPECT_TRUE(info.fileAttributes().empty());
}

TEST_F(LogFiles, ComparesTheNewestFirst)
{
    const DDLogFileInfo first(make("log-000001.txt"));
    const DDLogFileInfo second(make("log-000002.txt"));
    EXPECT_LT(second.reverseCompareByCreationDate(first), 0);
    EXPECT_GT(first.reverseCompareByCreationDate(second), 0);
    EXPECT_EQ(first.reverseCompareByCreationDate(first), 0);
    EXPECT_LT(second.reverseCompareByModificationDate(first), 0);
}

TEST_F(LogFiles, RenamingStaysInTheFolderAndNeverOverwrites)
{
    const ConsoleCatcher console;
    DDLogFileInfo info(make("log-000001.txt"));
    info.renameFile("log-000001.txt");
    info.renameFile("log-000002.txt");
    EXPECT_EQ(info.filePath(), folder_.path() / "log-000002.txt");
    EXPECT_TRUE(fs::exists(info.filePath()));
    make("log-000003.txt");
    info.renameFile("log-000003.txt");
    EXPECT_EQ(info.fileName(), "log-000002.txt");
    EXPECT_EQ(console.lines,
              std::vector<std::string>{
                  "DDLogFileInfo: Error renaming file (log-000002.txt): File exists"});
}

TEST_F(LogFiles, AttributesComeAndGo)
{
    const ConsoleCatcher console;
    DDLogFileInfo info(folder_.write("log-000001.txt", ""));
    info.addExtendedAttributeWithName("Stowline.log.archived");
    EXPECT_TRUE(info.hasExtendedAttributeWithName("Stowline.log.archived"));
    EXPECT_TRUE(info.isArchived());
    info.removeExtendedAttributeWithName("Stowline.log.archived");
    EXPECT_FALSE(info.isArchived());
    EXPECT_TRUE(console.lines.empty());
    info.removeExtendedAttributeWithName("Stowline.log.archived");
    DDLogFileInfo missing(folder_.path() / "missing");
    missing.addExtendedAttributeWithName("a");
    EXPECT_EQ(console.lines, (std::vector<std::string>{
                                 "DDLogFileInfo: removexattr(Stowline.log.archived, " +
                                     info.filePath() + "): error = " + std::to_string(ENODATA),
                                 "DDLogFileInfo: setxattr(a, " + missing.filePath() +
                                     "): error = " + std::to_string(ENOENT)}));
}

TEST_F(LogFiles, WithoutAttributesTheMarkIsInTheName)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto mount = test::Mount::plainMemory(folder_.path() / "plain");
    const ConsoleCatcher console;
    DDLogFileInfo info(folder_.write("plain/log-000001.txt", "line\n"));
    DDLogFileInfo other(folder_.write("plain/log-000002.txt", "line\n"));
    info.setArchived(true);
    other.setArchived(true);
    EXPECT_EQ(info.fileName(), "log-000001.archived.txt");
    EXPECT_TRUE(info.isArchived());
    EXPECT_EQ(console.lines.size(), 1U) << "it is told once";
    const DDLogFileManagerDefault manager(folder_.path() / "plain");
    EXPECT_EQ(manager.unsortedLogFilePaths().size(), 2U);
    EXPECT_TRUE(manager.unsortedLogFileInfos()[0].isArchived());
    info.setArchived(false);
    EXPECT_EQ(info.fileName(), "log-000001.txt");
    EXPECT_FALSE(info.isArchived());
}

} // namespace
} // namespace stowline
