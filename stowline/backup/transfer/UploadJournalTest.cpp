#include "stowline/backup/transfer/UploadJournal.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

namespace stowline::backup {
namespace {

using platform::SourceFile;

UploadOwner ann()
{
    return {.service = "https://a.example",
            .username = "ann \xff",
            .systemName = "iMac",
            .identity = {.machine = "M", .user = "ann", .profile = "default"}};
}

JournalEntry entryFor(const std::string& path)
{
    int error = 0;
    const auto file = SourceFile::open(SourceFile::kNoFolder, path, error);
    return {.guid = "G", .owner = ann(), .path = path, .state = file->state().value()};
}

TEST(UploadJournal, KeepsEntriesOfAnyNameAndSize)
{
    int error = 0;
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path() / "deep" / "uploads");
    const JournalEntry entry{.guid = "G-1",
                             .owner = ann(),
                             .path = "/a/\xff\x01",
                             .state = {.size = ~std::uint64_t{0},
                                       .modified = {-1, 999'999'995},
                                       .changed = {13'569'465'600, 5}, // in the year 2400
                                       .inode = 2,
                                       .device = 77},
                             .sentBytes = std::uint64_t{1} << 40,
                             .parts = 3,
                             .checksum = 0xffffffff};
    ASSERT_TRUE(journal.write(entry, error));
    const auto read = journal.find(ann(), entry.path);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->guid, "G-1");
    EXPECT_EQ(read->owner, ann());
    EXPECT_EQ(read->path, entry.path);
    EXPECT_TRUE(isSameState(read->state, entry.state));
    EXPECT_EQ(read->state.device, 0U); // a file system gets another number when it is mounted again
    EXPECT_EQ(read->sentBytes, entry.sentBytes);
    EXPECT_EQ(read->checksum, entry.checksum);
    journal.remove(*read);
    journal.remove(*read);
    EXPECT_FALSE(journal.find(ann(), entry.path));
}

TEST(UploadJournal, KeepsWhatCannotBeLookedAtJustNow)
{
    int error = 0;
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path() / "uploads");
    folder.write("file", "x");
    for (const std::string& path : {"/" + std::string(5000, 'x'), std::string("/nowhere"),
                                    folder.path().string(), folder.path().string() + "/file/in"}) {
        JournalEntry entry = entryFor(folder.path() / "file");
        entry.path = path;
        ASSERT_TRUE(journal.write(entry, error));
    }
    journal.removeOvertaken();
    const auto left = journal.entries();
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(left[0].path.size(), 5001U) << "a path that is too long to be opened at once";
}

TEST(UploadJournal, NothingCrossesBetweenOwners)
{
    int error = 0;
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path());
    ASSERT_TRUE(journal.write({.guid = "G", .owner = ann(), .path = "/a"}, error));
    const auto other = [](auto change) {
        UploadOwner owner = ann();
        change(owner);
        return owner;
    };
    for (const UploadOwner& owner : {other([](auto& of) { of.service = "https://b.example"; }),
                                     other([](auto& of) { of.username = "bob"; }),
                                     other([](auto& of) { of.systemName = "other"; }),
                                     other([](auto& of) { of.identity.machine = "N"; }),
                                     other([](auto& of) { of.identity.user = "root"; }),
                                     other([](auto& of) { of.identity.profile = "work"; })})
        EXPECT_FALSE(journal.find(owner, "/a"));
    EXPECT_TRUE(journal.find(ann(), "/a"));
}

TEST(UploadJournal, ANewStateTakesThePlaceOfTheOneBefore)
{
    int error = 0;
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path());
    ASSERT_TRUE(journal.write({.guid = "old", .owner = ann(), .path = "/a"}, error));
    ASSERT_TRUE(journal.write({.guid = "new", .owner = ann(), .path = "/a"}, error));
    ASSERT_EQ(journal.entries().size(), 1U);
    EXPECT_EQ(journal.entries()[0].guid, "new");
}

TEST(UploadJournal, TakesOutWhatCanNeverBeGoneOnWith)
{
    int error = 0;
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path() / "uploads");
    const std::string same = folder.write("same", "1");
    const std::string changed = folder.write("changed", "1");
    const std::string gone = folder.write("gone", "1");
    for (const std::string& path : {same, changed, gone})
        ASSERT_TRUE(journal.write(entryFor(path), error));
    folder.write("changed", "22");
    std::filesystem::remove(gone);
    folder.write("uploads/cut.plist", "bplist00");
    folder.write("uploads/G.plist.left-over", "x");
    journal.removeOvertaken();
    const auto entries = journal.entries();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].path, same);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path() / "uploads"), {}), 1);
}

TEST(UploadJournal, IsNotHeldUpByAPipeInThePlaceOfAnEntry)
{
    const test::TemporaryFolder folder;
    const UploadJournal journal(folder.path());
    const auto pipe = folder.path() / "X.plist";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_TRUE(journal.entries().empty());
    journal.removeOvertaken();
    EXPECT_FALSE(std::filesystem::exists(pipe));
}

TEST(UploadJournal, SaysWhenItIsNotKnownWhatItHolds)
{
    const test::TemporaryFolder folder;
    int error = 0;
    EXPECT_TRUE(UploadJournal(folder.path() / "nothing").entries(error).empty());
    EXPECT_EQ(error, 0);
    folder.write("file", "");
    EXPECT_TRUE(UploadJournal(folder.path() / "file").entries(error).empty());
    EXPECT_EQ(error, ENOTDIR);
}

TEST(UploadJournal, SaysWhyItCannotBeWritten)
{
    const test::TemporaryFolder folder;
    folder.write("file", "");
    const UploadJournal journal(folder.path() / "file/uploads");
    int error = 0;
    EXPECT_FALSE(journal.write({.guid = "G", .owner = ann(), .path = "/a"}, error));
    EXPECT_EQ(error, EEXIST); // what stands in the place of the folder above
}

} // namespace
} // namespace stowline::backup
