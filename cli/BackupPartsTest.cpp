// The parts of a backup that need no service.
#include "cli/backup/FileTree.h"
#include "cli/backup/Pace.h"
#include "cli/backup/UploadJournal.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace stowline::cli {
namespace {

using namespace std::chrono_literals;

struct TestClock {
    Moment now{};
    std::function<Moment()> reader()
    {
        return [this] { return now; };
    }
};

TEST(Backoff, PausesGrowUpToHalfAMinuteUntilTheTimeIsUsedUp)
{
    TestClock clock;
    Backoff backoff(60s, clock.reader(), [] { return 1.0; });
    std::vector<double> pauses;
    while (const auto pause = backoff.next()) {
        pauses.push_back(std::chrono::duration<double>(*pause).count());
        clock.now += *pause;
    }
    EXPECT_EQ(pauses, (std::vector<double>{0.5, 1, 2, 4, 8, 16}));
}

TEST(Backoff, ChanceShortensAPauseToItsHalf)
{
    TestClock clock;
    Backoff backoff(60s, clock.reader(), [] { return 0.0; });
    EXPECT_EQ(backoff.next(), 250ms);
    EXPECT_EQ(backoff.next(), 500ms);
    Backoff none(0s, clock.reader(), [] { return 0.0; });
    EXPECT_EQ(none.next(), std::nullopt);
}

TEST(BandwidthLimit, KeepsTheSumAtTheRate)
{
    TestClock clock;
    BandwidthLimit limit(1000, clock.reader());
    EXPECT_EQ(limit.reserve(500), 0s);
    EXPECT_EQ(limit.reserve(500), 500ms); // of another thread, at the same moment
    EXPECT_EQ(limit.reserve(1000), 1s);
    clock.now += 10s;
    EXPECT_EQ(limit.reserve(1000), 0s); // time that was not used is not saved up
    EXPECT_EQ(limit.reserve(1), 1s);
    BandwidthLimit none(0, clock.reader());
    EXPECT_EQ(none.reserve(1U << 30), 0s);
}

TEST(BandwidthLimit, PartsAreHalfASecondsWorth)
{
    TestClock clock;
    EXPECT_EQ(BandwidthLimit(0, clock.reader()).partSize(1 << 22), 1U << 22);
    EXPECT_EQ(BandwidthLimit(100000, clock.reader()).partSize(1 << 22), 50000U);
    EXPECT_EQ(BandwidthLimit(10, clock.reader()).partSize(1 << 22), 4096U);
    EXPECT_EQ(BandwidthLimit(10, clock.reader()).partSize(100), 100U);
}

std::vector<std::string> names(const FileTree& tree, const test::TemporaryFolder& folder)
{
    std::vector<std::string> found;
    for (const LocalFile& file : tree.files)
        found.push_back(file.path.substr(folder.path().string().size() + 1));
    return found;
}

using Names = std::vector<std::string>;

TEST(FileTree, HoldsRegularFilesInOrder)
{
    const test::TemporaryFolder folder;
    folder.write("b/2", "12");
    folder.write("b/1", "1");
    folder.write("a", "");
    ASSERT_EQ(::symlink("/etc", (folder.path() / "link").c_str()), 0);
    const FileTree tree = walk({folder.path().string() + "/"}, {});
    EXPECT_EQ(names(tree, folder), (Names{"a", "b/1", "b/2"}));
    EXPECT_EQ(tree.files[2].size, 2U);
    EXPECT_EQ(tree.leftOut, 1U);
}

TEST(FileTree, TakesAnItemOnce)
{
    const test::TemporaryFolder folder;
    const std::string file = folder.write("a/1", "1").string();
    const FileTree tree = walk({folder.path().string(), file, folder.path() / "a/../a/1"}, {});
    EXPECT_EQ(names(tree, folder), Names{"a/1"});
}

TEST(FileTree, NamedItemsAreTakenWhateverTheRulesSay)
{
    const test::TemporaryFolder folder;
    const std::string file = folder.write(".hidden", "1").string();
    EXPECT_EQ(walk({file}, {.exclude = {"*"}, .skipsHidden = true}).files.size(), 1U);
}

TEST(FileTree, PackagesKnowTheirSize)
{
    const test::TemporaryFolder folder;
    folder.write("P.photoslibrary/in/1", "123");
    folder.write("P.photoslibrary/2", "12");
    folder.write("x", "1");
    const FileTree tree = walk({folder.path().string()}, {});
    ASSERT_EQ(tree.packages.size(), 1U);
    EXPECT_EQ(tree.packages[0].bytes, 5U);
}

TEST(FileTree, TellsWhatIsMissing)
{
    EXPECT_EQ(walk({"/nowhere/x"}, {}).missing, Names{"/nowhere/x"});
}

TEST(UploadJournal, KeepsEntriesOfAnyNameAndSize)
{
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path() / "deep" / "uploads");
    const JournalEntry entry{.guid = "G-1",
                             .username = "ann \xff",
                             .systemName = "iMac",
                             .file = {.path = "/a/\xff\x01",
                                      .size = ~std::uint64_t{0},
                                      .modified = Date(std::chrono::microseconds(-5)),
                                      .device = 1,
                                      .inode = 2,
                                      .contentMark = "m"},
                             .sentBytes = std::uint64_t{1} << 40,
                             .parts = 3,
                             .checksum = 0xffffffff};
    ASSERT_TRUE(journal.write(entry));
    const auto read = journal.find("G-1");
    ASSERT_TRUE(read);
    EXPECT_EQ(read->username, entry.username);
    EXPECT_EQ(read->file.path, entry.file.path);
    EXPECT_EQ(read->file.size, entry.file.size);
    EXPECT_EQ(read->file.modified, entry.file.modified);
    EXPECT_EQ(read->file.contentMark, "m");
    EXPECT_EQ(read->sentBytes, entry.sentBytes);
    EXPECT_EQ(read->checksum, entry.checksum);
    journal.remove("G-1");
    journal.remove("G-1");
    EXPECT_FALSE(journal.find("G-1"));
}

TEST(UploadJournal, LeavesOutWhatItCannotRead)
{
    const test::TemporaryFolder folder;
    folder.write("cut.plist", "bplist00");
    folder.write("empty.plist", "");
    folder.write("other.txt", "x");
    const UploadJournal journal(folder.path());
    ASSERT_TRUE(journal.write({.guid = "G", .file = {.path = "/a"}}));
    EXPECT_EQ(journal.entries().size(), 1U);
}

} // namespace
} // namespace stowline::cli
