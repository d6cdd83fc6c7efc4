#include "cli/commands/BackupReport.h"

#include <gtest/gtest.h>

namespace stowline::cli {
namespace {

using namespace std::chrono_literals;

TEST(BackupProgressLine, TellsTheTimeLeftBySlowerOfItemsAndBytes)
{
    backup::BackupProgress progress{.foundItems = 100,
                                    .doneItems = 50,
                                    .foundBytes = 1000000,
                                    .doneBytes = 1000000,
                                    .sentBytes = 1000000,
                                    .isWalkOver = true,
                                    .activity = "/a/file"};
    EXPECT_EQ(backupProgressLine(progress, 10s, 200),
              "50%  50 of 100 items  1.0 MB of 1.0 MB  100.0 kB/s  0:10 left  /a/file");
    progress.doneItems = 100;
    progress.doneBytes = 250000;
    EXPECT_NE(backupProgressLine(progress, 10s, 200).find("0:30 left"), std::string::npos);
}

TEST(BackupProgressLine, SaysOfAWalkThatGoesOnThatThereMayBeMore)
{
    const backup::BackupProgress progress{.foundItems = 7, .doneItems = 3, .activity = {}};
    EXPECT_EQ(backupProgressLine(progress, 10s, 200), "3 of at least 7 items  0 B of 0 B");
}

TEST(BackupProgressLine, FitsTheTerminal)
{
    const backup::BackupProgress progress{
        .foundItems = 7, .doneItems = 3, .activity = "/\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4"};
    for (std::size_t columns = 0; columns < 80; ++columns)
        EXPECT_LE(backupProgressLine(progress, 10s, columns).size(), columns);
}

TEST(BackupSentences, AddUp)
{
    backup::BackupSummary summary;
    summary.found = 15;
    summary.stored = 1;
    summary.storedBytes = 1500000;
    summary.unchanged = 10;
    summary.recorded = 2;
    summary.excluded = 1;
    summary.failed = 1;
    summary.seconds = 61;
    EXPECT_EQ(backupSentences(summary), "Stored 1 file (1.5 MB).\n"
                                        "Unchanged: 10 files (0 B).\n"
                                        "Recorded without content: 2 folders, links and the like.\n"
                                        "Left out by rules: 1 item.\n"
                                        "Failed: 1 item.\n"
                                        "15 items in all, in 1:01.");
}

} // namespace
} // namespace stowline::cli
