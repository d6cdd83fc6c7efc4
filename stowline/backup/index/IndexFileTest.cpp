#include "stowline/backup/index/ItemIndex.h"

#include "tests/support/MountNamespace.h"
#include "tests/support/TemporaryFolder.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;
using State = ItemIndex::State;

const IndexOwner kOwner{"https://s", "ann", "box", "m-1", "ann", "default"};

StoredItem fileAt(const std::string& path)
{
    StoredItem item;
    item.item.path = path;
    item.content = StoredContent{.version = "1", .digest = std::string(64, '0')};
    return item;
}

class IndexFileTest : public ::testing::Test {
protected:
    [[nodiscard]] ItemIndex open(const IndexOwner& owner = kOwner) const
    {
        return ItemIndex::open(file_, owner);
    }

    void makeWithOneItem() const
    {
        auto index = open();
        index.put(fileAt("/a"), 1);
        index.setPosition({1, "d"});
        index.commit();
    }

    void expectFreshAfter(State state) const
    {
        auto index = open();
        EXPECT_EQ(index.state(), state);
        EXPECT_EQ(index.itemCount(), 0U);
        EXPECT_EQ(index.position(), IndexPosition{});
        EXPECT_TRUE(fs::exists(file_.string() + ".unusable"));
        index.put(fileAt("/b"), 1);
        index.commit();
        EXPECT_EQ(open().state(), State::continued);
    }

    [[nodiscard]] static std::string sentenceOf(const std::function<void()>& deed,
                                                IndexFault::Kind kind)
    {
        try {
            deed();
        } catch (const IndexFault& fault) {
            EXPECT_EQ(fault.kind(), kind) << fault.what();
            return fault.what();
        }
        return "no fault";
    }

    test::TemporaryFolder folder_;
    fs::path file_ = folder_.path() / "index.sqlite";
};

TEST_F(IndexFileTest, IsMadeForItsOwnerAloneAndGoneOnWith)
{
    EXPECT_EQ(open().state(), State::fresh);
    makeWithOneItem();
    const auto index = open();
    EXPECT_EQ(index.state(), State::continued);
    EXPECT_EQ(index.find("/a"), fileAt("/a"));
    EXPECT_EQ(index.position(), (IndexPosition{1, "d"}));
    int files = 0;
    for (const auto& entry : fs::directory_iterator(folder_.path())) {
        EXPECT_EQ(entry.status().permissions(), fs::perms::owner_read | fs::perms::owner_write)
            << entry.path();
        ++files;
    }
    EXPECT_GE(files, 2) << "the log beside it is looked at too";
}

TEST_F(IndexFileTest, KnowsTheRecordsItWasAtAlsoOneOfBeforeThatKeptThemNowhere)
{
    makeWithOneItem();
    {
        SQLite::Database(file_.string(), SQLite::OPEN_READWRITE).exec("DROP TABLE records");
        EXPECT_TRUE(ItemIndex::knownRecordsOf(file_, kOwner).empty());
        auto index = open();
        index.setPosition({2, "e"});
        index.setPosition({3, "f"});
        index.setPosition({});
        index.noteKnownRecord({2, "g"});
        index.commit();
    }
    using Known = std::vector<IndexPosition>;
    EXPECT_EQ(ItemIndex::knownRecordsOf(file_, kOwner), (Known{{2, "g"}, {3, "f"}}));
    EXPECT_TRUE(ItemIndex::knownRecordsOf(file_, {}).empty());
    auto index = open();
    EXPECT_EQ(index.knownRecords(), (Known{{2, "g"}, {3, "f"}}));
    index.clear();
    EXPECT_TRUE(index.knownRecords().empty());
}

TEST_F(IndexFileTest, TakesBackAModeThatLetOthersRead)
{
    makeWithOneItem();
    fs::permissions(file_, fs::perms::all);
    (void)open();
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(IndexFileTest, OfAnybodyElseIsSetAside)
{
    for (auto field : {&IndexOwner::service, &IndexOwner::username, &IndexOwner::systemName,
                       &IndexOwner::machine, &IndexOwner::user, &IndexOwner::profile}) {
        IndexOwner other = kOwner;
        other.*field = "other";
        fs::remove(file_);
        {
            auto index = open(other);
            index.put(fileAt("/a"), 1);
        }
        expectFreshAfter(State::ofAnotherOwner);
    }
}

TEST_F(IndexFileTest, OfANewerVersionIsSetAside)
{
    makeWithOneItem();
    SQLite::Database(file_.string(), SQLite::OPEN_READWRITE).exec("PRAGMA user_version = 2");
    expectFreshAfter(State::ofNewerVersion);
}

TEST_F(IndexFileTest, OfAnotherProgramIsSetAside)
{
    SQLite::Database(file_.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("CREATE TABLE items (x)");
    expectFreshAfter(State::damaged);
}

TEST_F(IndexFileTest, WithAColumnMissingIsSetAside)
{
    makeWithOneItem();
    SQLite::Database(file_.string(), SQLite::OPEN_READWRITE)
        .exec("ALTER TABLE items DROP COLUMN baseline");
    expectFreshAfter(State::damaged);
}

TEST_F(IndexFileTest, WithoutAnOwnerIsSetAside)
{
    makeWithOneItem();
    SQLite::Database(file_.string(), SQLite::OPEN_READWRITE).exec("DELETE FROM about");
    expectFreshAfter(State::damaged);
}

TEST_F(IndexFileTest, ThatIsNoDatabaseIsSetAside)
{
    folder_.write("index.sqlite", std::string(20000, 'x'));
    expectFreshAfter(State::damaged);
}

TEST_F(IndexFileTest, InWhosePlaceAPipeLiesIsMadeAnew)
{
    ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
    expectFreshAfter(State::damaged);
    EXPECT_TRUE(fs::is_fifo(file_.string() + ".unusable"));
}

TEST_F(IndexFileTest, WithoutAByteIsAFreshOne)
{
    folder_.write("index.sqlite", "");
    EXPECT_EQ(open().state(), State::fresh);
}

TEST_F(IndexFileTest, CutOffAnywhereIsSetAsideAndNeverHalfBelieved)
{
    {
        auto index = open();
        for (int i = 0; i < 2000; ++i)
            index.put(fileAt("/f/" + std::to_string(i)), 1);
    }
    const auto whole = fs::file_size(file_);
    const auto copy = folder_.path() / "whole";
    fs::copy_file(file_, copy);
    for (std::uintmax_t size = 1; size < whole; size += whole / 23) {
        fs::copy_file(copy, file_, fs::copy_options::overwrite_existing);
        fs::resize_file(file_, size);
        auto index = open();
        EXPECT_EQ(index.state(), size == 1 ? State::fresh : State::damaged) << size;
        EXPECT_EQ(index.itemCount(), 0U) << size;
    }
}

TEST_F(IndexFileTest, WithAPageOverwrittenIsSetAside)
{
    {
        auto index = open();
        for (int i = 0; i < 2000; ++i)
            index.put(fileAt("/f/" + std::to_string(i)), 1);
    }
    std::fstream(file_, std::ios::in | std::ios::out | std::ios::binary).seekp(40960)
        << std::string(4096, '\x55');
    expectFreshAfter(State::damaged);
}

TEST_F(IndexFileTest, PutBackFromAnOldCopyIsAtItsOldRecord)
{
    makeWithOneItem();
    const auto copy = folder_.path() / "old";
    fs::copy_file(file_, copy);
    {
        auto index = open();
        index.put(fileAt("/b"), 2);
        index.setPosition({2, "e"});
    }
    fs::copy_file(copy, file_, fs::copy_options::overwrite_existing);
    const auto index = open();
    EXPECT_EQ(index.state(), State::continued);
    EXPECT_EQ(index.position(), (IndexPosition{1, "d"}));
    EXPECT_EQ(index.find("/b"), std::nullopt);
}

TEST_F(IndexFileTest, KilledAtAnyMomentHoldsEverythingThatWasCommitted)
{
    for (int round = 0; round < 20; ++round) {
        int told[2];
        ASSERT_EQ(::pipe(told), 0);
        const pid_t child = ::fork();
        if (child == 0) {
            auto index = open();
            for (int i = 0;; ++i) {
                const int number = round * 1'000'000 + i;
                index.put(fileAt("/f/" + std::to_string(number)), 1);
                if (i % 7 == 6) {
                    index.commit();
                    if (::write(told[1], &number, sizeof number) != sizeof number)
                        ::_exit(1);
                }
            }
        }
        ::close(told[1]);
        int last = -1;
        for (int read = 0; read < 5 + round * 3; ++read)
            ASSERT_EQ(::read(told[0], &last, sizeof last), static_cast<ssize_t>(sizeof last));
        ::kill(child, SIGKILL);
        while (::read(told[0], &last, sizeof last) == static_cast<ssize_t>(sizeof last)) {
        }
        ::close(told[0]);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        const auto index = open();
        ASSERT_NE(index.state(), State::damaged);
        for (int number = round * 1'000'000; number <= last; ++number)
            ASSERT_TRUE(index.find("/f/" + std::to_string(number))) << number;
    }
}

TEST_F(IndexFileTest, BatchesAreWrittenByThemselves)
{
    auto index = open();
    for (int i = 0; i < 12'000; ++i)
        index.put(fileAt("/f/" + std::to_string(i)), 1);
    // Two batches of five thousand, or more of fewer where the machine is slow.
    EXPECT_GT(SQLite::Database(file_.string(), SQLite::OPEN_READONLY)
                  .execAndGet("SELECT count(*) FROM items")
                  .getInt(),
              12'000 - 5'000 - 1);
}

TEST_F(IndexFileTest, WhatWaitedForASecondIsWrittenWithTheNextChange)
{
    auto index = open();
    index.put(fileAt("/1"), 1);
    ::usleep(1'100'000);
    index.put(fileAt("/2"), 1);
    EXPECT_EQ(SQLite::Database(file_.string(), SQLite::OPEN_READONLY)
                  .execAndGet("SELECT count(*) FROM items")
                  .getInt(),
              1);
}

TEST_F(IndexFileTest, UnchangedItemsCauseNoWrite)
{
    makeWithOneItem();
    const auto stamp = fs::last_write_time(file_);
    {
        const auto index = open();
        EXPECT_EQ(index.itemsIn("/").size(), 1U);
        EXPECT_EQ(index.longestUnconfirmed(10).size(), 1U);
    }
    EXPECT_EQ(fs::last_write_time(file_), stamp);
}

TEST_F(IndexFileTest, IsReadWhileAnotherWritesAndWrittenWhenThatHasCommitted)
{
    auto first = open();
    auto second = open();
    first.put(fileAt("/1"), 1);
    EXPECT_EQ(second.find("/1"), std::nullopt);
    EXPECT_EQ(sentenceOf([&] { second.put(fileAt("/2"), 1); }, IndexFault::Kind::inUse),
              "The index of the backup, " + file_.string() +
                  ", cannot be used: another program is writing it.");
    first.commit();
    second.put(fileAt("/2"), 1);
    second.commit();
    EXPECT_TRUE(first.find("/2"));
    EXPECT_TRUE(second.find("/1"));
}

TEST_F(IndexFileTest, TwoProcessesWritingAtOnceLoseNothing)
{
    (void)open();
    constexpr int count = 300;
    std::vector<pid_t> children;
    for (const char* name : {"/a/", "/b/"}) {
        children.push_back(::fork());
        if (children.back() != 0)
            continue;
        auto index = open();
        for (int i = 0; i < count; ++i) {
            index.put(fileAt(name + std::to_string(i)), 1);
            index.commit();
        }
        ::_exit(0);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(open().itemCount(), 2U * count);
}

TEST_F(IndexFileTest, WithoutAFolderCannotBeMade)
{
    const auto missing = folder_.path() / "none" / "index.sqlite";
    EXPECT_EQ(
        sentenceOf([&] { (void)ItemIndex::open(missing, kOwner); }, IndexFault::Kind::unwritable),
        "The index of the backup, " + missing.string() +
            ", cannot be made or written: No such file or directory.");
}

TEST_F(IndexFileTest, OnADiskThatIsReadOnlyCannotBeWritten)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = folder_.path() / "disk";
    const auto mount = test::Mount::memory(disk);
    { // made, and closed
        (void)ItemIndex::open(disk / "old", kOwner);
    }
    ASSERT_EQ(::mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    for (const char* name : {"old", "new"}) {
        const auto file = disk / name;
        EXPECT_EQ(
            sentenceOf([&] { (void)ItemIndex::open(file, kOwner); }, IndexFault::Kind::unwritable),
            "The index of the backup, " + file.string() +
                ", cannot be made or written: Read-only file system.");
    }
}

TEST_F(IndexFileTest, InAFolderThatIsReadOnlyCannotBeMade)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "Only root can become somebody else.";
    fs::permissions(folder_.path(), fs::perms(0755));
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setresuid(65534, 65534, 65534) != 0)
            ::_exit(2);
        const auto said = sentenceOf([&] { (void)open(); }, IndexFault::Kind::unwritable);
        ::_exit(said.find("Permission denied") == std::string::npos ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(IndexFileTest, OnAFullDiskSaysSoAndKeepsWhatWasCommitted)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = folder_.path() / "disk";
    const auto mount = test::Mount::memory(disk, "size=2m");
    const auto file = disk / "index";
    auto index = ItemIndex::open(file, kOwner);
    index.put(fileAt("/first"), 1);
    index.commit();
    const auto fill = [&] {
        for (int i = 0; i < 100'000; ++i)
            index.put(fileAt("/f/" + std::to_string(i)), 1);
        index.commit();
    };
    EXPECT_EQ(sentenceOf(fill, IndexFault::Kind::diskFull),
              "The index of the backup, " + file.string() + ", cannot be used: the disk is full.");
    EXPECT_TRUE(index.find("/first"));
    const auto count = index.itemCount();
    ASSERT_EQ(::mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT, "size=200m"), 0);
    index.put(fileAt("/later/x"), 1);
    index.commit();
    EXPECT_EQ(index.itemCount(), count + 1);
    const SQLite::Database check(file.string(), SQLite::OPEN_READONLY);
    EXPECT_EQ(SQLite::Database(file.string()).execAndGet("PRAGMA integrity_check").getString(),
              "ok");
}

TEST_F(IndexFileTest, OnADiskWithoutAnyRoomCannotBeMade)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto disk = folder_.path() / "disk";
    const auto mount = test::Mount::memory(disk, "size=64k");
    std::ofstream(disk / "filler") << std::string(65536, 'x');
    const auto file = disk / "index";
    EXPECT_EQ(sentenceOf([&] { (void)ItemIndex::open(file, kOwner); }, IndexFault::Kind::diskFull),
              "The index of the backup, " + file.string() + ", cannot be used: the disk is full.");
}

TEST(TemporaryIndex, LeavesNoFile)
{
    const test::TemporaryFolder folder;
    ::setenv("SQLITE_TMPDIR", folder.path().c_str(), 1);
    auto index = ItemIndex::temporary();
    for (int i = 0; i < 50'000; ++i)
        index.put(fileAt("/f/" + std::to_string(i)), 1);
    EXPECT_EQ(index.itemCount(), 50'000U);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

} // namespace
} // namespace stowline::backup
