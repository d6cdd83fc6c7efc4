// Days of grace: what is deleted stays for a while, and comes back as it was.
#include "devserver/Deletions.h"
#include "devserver/Storage.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <SQLiteCpp/SQLiteCpp.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <ctime>
#include <fstream>

namespace stowline::devserver {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr std::int64_t kNoLimit = 1000000;
constexpr double kPatience = 8; ///< seconds of this process alone, whatever else the machine does

double secondsOfThisProcess()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

/// From now on this process can make no hard links, as where the file system has none.
bool forbidHardLinks()
{
    constexpr auto number = offsetof(seccomp_data, nr);
    std::array<sock_filter, 5> filter{{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
                                       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 1, 0),
#ifdef SYS_link
                                       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_link, 0, 1),
#else
                                       BPF_JUMP(BPF_JMP | BPF_JA, 1, 0, 0),
#endif
                                       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                                       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
    const sock_fprog program{.len = filter.size(), .filter = filter.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class GraceTest : public testing::Test {
protected:
    /// @return the list of the version
    std::string put(const std::string& guid, const std::string& path, const std::string& content,
                    std::int64_t baseline = -1, const std::string& system = "iMac")
    {
        const UploadPlace place{"ann", path_, guid};
        const auto slash = path.rfind('/');
        EXPECT_TRUE(storage_.addPart(place, {.fileName = "f", .bytes = content}));
        EXPECT_EQ(storage_.registerFile({.place = place,
                                         .systemName = system,
                                         .folder = path.substr(0, slash),
                                         .name = path.substr(slash + 1),
                                         .size = content.size(),
                                         .uploadedSize = content.size(),
                                         .clientDate = "of " + content,
                                         .isDelta = baseline > 0,
                                         .baselineVersion = baseline}),
                  RegistrationOutcome::success);
        return storage_.held(place).value().listId;
    }

    bool remove(const std::string& list) { return storage_.deleteVersion("ann", list); }

    Undeletion undelete(const std::string& path = "", std::int64_t since = 0)
    {
        return storage_.undelete({.userName = "ann", .path = path, .since = since}, kNoLimit);
    }

    DeletedPage deleted(const std::string& path = "")
    {
        return storage_.deletedVersions({.userName = "ann", .path = path, .pageSize = 100});
    }

    /// What a folder's listing says, as "name=date of the newest"; of a folder "name/".
    std::vector<std::string> names(const std::string& folder)
    {
        std::vector<std::string> found;
        const ItemQuery query{
            .userName = "ann", .systemName = "iMac", .folder = folder, .pageSize = 100};
        const ItemPage page = storage_.folder(query).value();
        for (const StoredItem& item : page.items)
            found.push_back(item.isFolder ? item.name + "/" : item.name + "=" + item.modified);
        return found;
    }

    std::string content(std::int64_t version)
    {
        return storage_.readPart("ann", version, 0, 1000).bytes;
    }

    void execute(const std::string& statements)
    {
        SQLite::Database((folder_.path() / "files.sqlite").string(), SQLite::OPEN_READWRITE, 5000)
            .exec(statements);
    }

    /// As the service does, it looks once an hour. @return how many versions were taken away
    std::size_t letPass(std::chrono::seconds time)
    {
        std::size_t dropped = 0;
        while (time > 0s) {
            const std::chrono::seconds step = std::min<std::chrono::seconds>(time, 1h);
            now_ += step;
            time -= step;
            dropped += storage_.dropDeleted();
        }
        return dropped;
    }

    std::int64_t seconds() const
    {
        return std::chrono::floor<std::chrono::seconds>(now_).time_since_epoch().count();
    }

    test::TemporaryFolder folder_;
    Storage::Clock::time_point now_{std::chrono::sys_days{std::chrono::January / 1 / 2026}};
    Storage storage_{folder_.path(), [this] { return now_; }};
    std::string path_ = storage_.uploadPath("ann", 1, "G");
};

using Names = std::vector<std::string>;

TEST_F(GraceTest, WhatIsDeletedIsGoneForReadersAndComesBackAsItWas)
{
    const std::string list = put("g", "/d/e/a", "hello");
    const StoredVersion before = storage_.version("ann", 1).value();
    ASSERT_TRUE(remove(list));
    EXPECT_EQ(names(""), Names{});
    EXPECT_EQ(content(1), "");
    EXPECT_FALSE(remove(list));
    EXPECT_EQ(storage_.usedBytes("ann"), 5U);
    EXPECT_EQ(storage_.graceBytes("ann"), 5U);
    const DeletedPage page = deleted();
    ASSERT_EQ(page.totalCount, 1);
    EXPECT_EQ(page.totalBytes, 5U);
    EXPECT_EQ(page.versions.at(0).version.name, "a");
    EXPECT_EQ(page.versions.at(0).deletedAt, "2026-01-01 00:00:00");
    EXPECT_EQ(page.versions.at(0).keptUntil, "2026-01-08 00:00:00");

    const Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 1);
    EXPECT_EQ(back.bytes, 5U);
    EXPECT_EQ(back.remaining + back.left, 0);
    EXPECT_EQ(names("/d/e"), Names{"a=of hello"});
    EXPECT_EQ(content(1), "hello");
    const StoredVersion after = storage_.version("ann", 1).value();
    EXPECT_EQ(after.fileId, before.fileId);
    EXPECT_EQ(after.listId, list);
    EXPECT_EQ(after.storedAt, before.storedAt);
    EXPECT_EQ(after.digest, before.digest);
    EXPECT_EQ(storage_.usedBytes("ann"), 5U);
    EXPECT_EQ(storage_.graceBytes("ann"), 0U);
    EXPECT_EQ(undelete().broughtBack, 0);
    EXPECT_TRUE(remove(list)); // and once more
    EXPECT_EQ(undelete().broughtBack, 1);
}

TEST_F(GraceTest, ItEndsAfterSevenDaysAndNotASecondBefore)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    const fs::path file = folder_.path() / "vol1/1/G/g";
    EXPECT_EQ(letPass(std::chrono::days{7} - 1s), 0U);
    (void)storage_.dropAbandoned();
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(letPass(1s), 1U);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(undelete().broughtBack, 0);
    EXPECT_EQ(storage_.usedBytes("ann"), 0U);
}

TEST_F(GraceTest, NeitherAClockThatJumpsNorAServiceThatDidNotRunEndsIt)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    for (int time = 0; time < 3; ++time) {
        now_ += std::chrono::days{8};
        EXPECT_EQ(storage_.dropDeleted(), 0U);
        EXPECT_EQ(Storage(folder_.path(), [this] { return now_; }).dropDeleted(), 0U);
        now_ -= std::chrono::days{8};
        EXPECT_EQ(storage_.dropDeleted(), 0U);
    }
    now_ += std::chrono::days{8};
    (void)storage_.dropDeleted();
    const DeletedPage page = deleted();
    ASSERT_EQ(page.totalCount, 1);
    // It is said for how long it is really kept: eight hours were counted, two at each jump.
    EXPECT_EQ(page.versions.at(0).keptUntil, "2026-01-15 16:00:00");
    EXPECT_EQ(letPass(std::chrono::days{7} - 8h - 1s), 0U);
    EXPECT_EQ(letPass(1s), 1U);
}

TEST_F(GraceTest, ADeletionOfAServiceThatDidNotKnowTheTimeIsKeptAsLong)
{
    const auto right = now_;
    now_ = Storage::Clock::time_point{};
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    now_ = right;
    EXPECT_EQ(letPass(std::chrono::days{6}), 0U);
    EXPECT_EQ(undelete().broughtBack, 1);
}

TEST_F(GraceTest, WhatWasPromisedHoldsWhenTheGraceIsShorterLater)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    Storage shorter(
        folder_.path(), [this] { return now_; }, 24h);
    EXPECT_EQ(shorter.deletedVersions({.userName = "ann", .pageSize = 9}).versions.at(0).keptUntil,
              "2026-01-08 00:00:00");
    for (int hour = 0; hour < 7 * 24 - 1; ++hour) {
        now_ += 1h;
        ASSERT_EQ(shorter.dropDeleted(), 0U) << hour;
    }
    now_ += 1h;
    EXPECT_EQ(shorter.dropDeleted(), 1U);
}

TEST_F(GraceTest, WhatWasBroughtBackIsNotTakenAwayWhenItsDaysWouldHaveBeenOver)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(letPass(std::chrono::days{8}), 0U);
    EXPECT_EQ(content(1), "hello");
}

TEST_F(GraceTest, AbandonedUploadsAreDroppedButNotTheContentOfWhatIsKept)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    const fs::path file = folder_.path() / "vol1/1/G/g";
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::days{30});
    EXPECT_EQ(storage_.dropAbandoned(), 0U);
    EXPECT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(content(1), "hello");
}

TEST_F(GraceTest, AnUploadInItsPlaceDoesNotShortenIt)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    put("g", "/a", "other"); // whoever knows the password can name the place
    EXPECT_EQ(content(2), "other");
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(content(1), "hello");
    EXPECT_EQ(content(2), "other");
    EXPECT_EQ(names(""), Names{"a=of other"});
    // One part alone, and one that is registered without a part, are uploads too.
    ASSERT_TRUE(remove(put("h", "/b", "kept")));
    ASSERT_TRUE(storage_.addPart({"ann", path_, "h"}, {.fileName = "f", .bytes = "X"}));
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(content(3), "kept");
}

TEST_F(GraceTest, AnUploadAfterAKillWhileThePlaceWasMadeFreeLeavesTheContentAlone)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    const fs::path file = folder_.path() / "vol1/1/G/g";
    // What a kill leaves right after the row had its new name: two names of one content.
    fs::create_hard_link(file, file.string() + ".deleted-1");
    {
        SQLite::Database database((folder_.path() / "files.sqlite").string(),
                                  SQLite::OPEN_READWRITE, 5000);
        database.exec("UPDATE deleted_versions SET server_file = server_file || '.deleted-1'");
    }
    put("g", "/a", "other");
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(content(1), "hello");
    EXPECT_EQ(content(2), "other");
}

TEST_F(GraceTest, ALossOfPowerAfterAnUploadInItsPlaceLosesNothing)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    ASSERT_TRUE(storage_.addPart({"ann", path_, "g"}, {.fileName = "f", .bytes = "other"}));
    execute("UPDATE deleted_versions SET server_file = '/vol1/1/G/g'"); // what was written is lost
    Storage again(folder_.path(), [this] { return now_; });
    EXPECT_EQ(again.undelete({.userName = "ann"}, kNoLimit).broughtBack, 1);
    EXPECT_EQ(content(1), "hello");
}

TEST_F(GraceTest, AnUploadInItsPlaceLeavesTheContentAloneWhereThereAreNoHardLinks)
{
    const auto upload = [this] {
        if (!forbidHardLinks())
            std::exit(3);
        (void)storage_.addPart({"ann", path_, "g"}, {.fileName = "f", .bytes = "other"});
        std::exit(undelete().broughtBack == 1 && content(1) == "hello" ? 0 : 1);
    };
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    EXPECT_EXIT(upload(), testing::ExitedWithCode(0), "");
}

TEST_F(GraceTest, AnUploadInItsPlaceIsRefusedWhereTheContentCannotHaveAnotherName)
{
    ASSERT_TRUE(remove(put("g", "/a", "hello")));
    const fs::path inTheWay = folder_.path() / "vol1/1/G/g.deleted-1";
    fs::create_directory(inTheWay);
    const UploadedPart part{.fileName = "f", .bytes = "other"};
    EXPECT_THROW((void)storage_.addPart({"ann", path_, "g"}, part), fs::filesystem_error);
    EXPECT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(content(1), "hello");
    ASSERT_TRUE(remove(storage_.version("ann", 1)->listId));
    fs::remove(inTheWay);
    EXPECT_TRUE(storage_.addPart({"ann", path_, "g"}, part));
    EXPECT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(content(1), "hello");
}

TEST_F(GraceTest, ManyFilesOfOneFolderComeBackInAMoment)
{
    ASSERT_TRUE(remove(put("g", "/d/a", "hello")));
    const std::int64_t files = 8000;
    execute("WITH RECURSIVE n(n) AS (VALUES (100) UNION ALL SELECT n + 1 FROM n WHERE n < 8098)"
            " INSERT INTO deleted_versions SELECT n, n, user_name, system_name, folder, 'f' || n,"
            " size, client_date, stored_at, '/vol1/1/G/f' || n, checksum, 0, 0, -1, 'l' || n,"
            " stored_size, digest, stamp, 1, deleted_at, kept_until, due FROM deleted_versions, n");
    for (int file = 100; file < 110; ++file)
        std::ofstream(folder_.path() / "vol1/1/G" / ("f" + std::to_string(file))) << "hello";
    const double begin = secondsOfThisProcess();
    EXPECT_EQ(deleted().totalCount, files);
    const Undeletion some = storage_.undelete({.userName = "ann"}, 10);
    EXPECT_EQ(some.broughtBack, 10);
    EXPECT_EQ(some.remaining, 10); // as far as another call would go
    EXPECT_LT(secondsOfThisProcess() - begin, kPatience);
}

TEST_F(GraceTest, DeletingAmongManyVersionsTakesAMoment)
{
    put("g", "/a", "hello");
    execute("WITH RECURSIVE n(n) AS (VALUES (100) UNION ALL SELECT n + 1 FROM n WHERE n < 200000)"
            " INSERT INTO versions SELECT n, item_id, user_name, size, client_date, stored_at, n,"
            " checksum, 0, 0, -1, n, stored_size, digest, stamp, 1 FROM versions, n;"
            " WITH RECURSIVE n(n) AS (VALUES (100) UNION ALL SELECT n + 1 FROM n WHERE n < 299)"
            " INSERT INTO items (id, user_name, system_name, folder, name, is_folder, versions)"
            " SELECT n, 'ann', 'iMac', '', n, 0, 1 FROM n;"
            " UPDATE versions SET item_id = id WHERE id BETWEEN 100 AND 299");
    const double begin = secondsOfThisProcess();
    for (int version = 100; version < 300; ++version)
        ASSERT_TRUE(remove(std::to_string(version)));
    EXPECT_LT(secondsOfThisProcess() - begin, kPatience);
}

TEST_F(GraceTest, ANewerVersionStaysTheNewest)
{
    const std::string first = put("g1", "/a", "one");
    const std::string second = put("g2", "/a", "two");
    ASSERT_TRUE(remove(first));
    put("g3", "/a", "three");
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(names(""), Names{"a=of three"});
    EXPECT_EQ(storage_.versions("ann", storage_.version("ann", 1)->fileId).size(), 3U);
    // And one that was the newest is so again.
    ASSERT_TRUE(remove(storage_.version("ann", 3)->listId));
    EXPECT_EQ(names(""), Names{"a=of two"});
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(names(""), Names{"a=of three"});
    EXPECT_TRUE(remove(second));
}

TEST_F(GraceTest, WhatHasBecomeAFileStaysOneAndTheOtherWayRound)
{
    ASSERT_TRUE(remove(put("g1", "/d/x", "below")));
    put("g2", "/d", "now a file");
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(names(""), Names{"d=of now a file"});
    EXPECT_EQ(names("/d"), Names{"x=of below"});
    ASSERT_TRUE(remove(put("g3", "/e", "a file")));
    put("g4", "/e/y", "now a folder");
    ASSERT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(names(""), (Names{"d=of now a file", "e/"}));
    EXPECT_EQ(content(3), "a file");
}

TEST_F(GraceTest, TwoDeletionsOfAPathAreToldApartByTime)
{
    ASSERT_TRUE(remove(put("g1", "/a", "one")));
    now_ += 1h;
    ASSERT_TRUE(remove(put("g2", "/a", "two")));
    const auto atSecond = seconds();
    EXPECT_EQ(undelete("", atSecond + 1).broughtBack, 0);
    EXPECT_EQ(undelete("", atSecond).broughtBack, 1);
    EXPECT_EQ(content(2), "two");
    EXPECT_EQ(content(1), "");
    EXPECT_EQ(undelete().broughtBack, 1);
    EXPECT_EQ(names(""), Names{"a=of two"});
}

TEST_F(GraceTest, APathMeansTheFileOrTheFolderAndNothingBesideIt)
{
    for (const char* path : {"/d/a", "/d/s/b", "/da", "/c", "/%/x"})
        ASSERT_TRUE(remove(put(std::string("g-") + std::to_string(path[1]) + path[2], path, path)));
    EXPECT_EQ(deleted("/d").totalCount, 2);
    EXPECT_EQ(deleted("/d/").totalCount, 2);
    EXPECT_EQ(deleted("/%").totalCount, 1);
    EXPECT_EQ(undelete("/d/a").broughtBack, 1);
    EXPECT_EQ(undelete("/c").broughtBack, 1);
    EXPECT_EQ(names(""), (Names{"c=of /c", "d/"}));
    EXPECT_EQ(storage_.undelete({.userName = "bob"}, kNoLimit).broughtBack, 0);
    EXPECT_EQ(storage_.undelete({.userName = "ann", .systemName = "other"}, kNoLimit).broughtBack,
              0);
}

TEST_F(GraceTest, ADeltaComesBackWithItsBaseOrNotAtAll)
{
    const std::string base = put("g1", "/a", "base");
    const std::string delta = put("g2", "/a", "delta", 1);
    EXPECT_FALSE(remove(base)); // and nothing is kept of what was not deleted
    EXPECT_EQ(deleted().totalCount, 0);
    ASSERT_TRUE(remove(delta));
    ASSERT_TRUE(remove(base));
    ASSERT_EQ(undelete().broughtBack, 2);
    ASSERT_TRUE(remove(delta));
    ASSERT_TRUE(remove(base));
    SQLite::Database((folder_.path() / "files.sqlite").string(), SQLite::OPEN_READWRITE, 5000)
        .exec("DELETE FROM deleted_versions WHERE id = 1");
    const Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 0);
    EXPECT_EQ(back.remaining, 0);
    EXPECT_EQ(back.left, 1);
}

TEST_F(GraceTest, RecordsComeBackLastAndInBatches)
{
    const std::string record = put("r1", "/=stowline=/records/c/00000001-finished", "record");
    const std::string file = put("g1", "/a", "content");
    ASSERT_TRUE(remove(record));
    ASSERT_TRUE(remove(file));
    const Undeletion first = storage_.undelete({.userName = "ann"}, 1);
    EXPECT_EQ(first.broughtBack, 1);
    EXPECT_EQ(first.remaining, 1);
    EXPECT_EQ(content(2), "content");
    EXPECT_EQ(content(1), "");
    EXPECT_EQ(storage_.undelete({.userName = "ann"}, 1).remaining, 0);
    EXPECT_EQ(content(1), "record");
}

TEST_F(GraceTest, WhatHasNoContentAnyMoreStaysAndIsCountedApart)
{
    const fs::path contents = folder_.path() / "vol1/1/G";
    std::vector<std::string> lists;
    for (const char* name : {"gone", "cut", "broken", "base", "whole"})
        lists.push_back(put(name, std::string("/d/") + name, "content"));
    lists.push_back(put("delta", "/d/base", "delta", 4));
    std::ofstream(contents / "broken") << "tnetnoc";
    ASSERT_EQ(storage_.contentState(storage_.version("ann", 3).value()), ContentState::damaged);
    for (auto list = lists.rbegin(); list != lists.rend(); ++list)
        ASSERT_TRUE(remove(*list));
    fs::remove(contents / "gone");
    fs::resize_file(contents / "cut", 3);
    fs::rename(contents / "base", contents / "elsewhere");
    const Undeletion first = storage_.undelete({.userName = "ann"}, 1);
    EXPECT_EQ(first.broughtBack, 1);
    const Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 0);
    EXPECT_EQ(back.remaining, 0);
    EXPECT_EQ(back.lost, 5); // the delta too
    EXPECT_EQ(back.left, 0);
    EXPECT_EQ(names("/d"), Names{"whole=of content"});
    fs::rename(contents / "elsewhere", contents / "base"); // as a disk that was not mounted
    EXPECT_EQ(undelete().broughtBack, 2);
    EXPECT_EQ(undelete().lost, 3);
}

TEST_F(GraceTest, DamagedContentThatWasSetAsideIsNotBroughtBack)
{
    const std::string list = put("g", "/a", "hello");
    std::ofstream(folder_.path() / "vol1/1/G/g") << "olleh";
    put("g", "/a", "hello"); // again, for the service holds it no more
    ASSERT_TRUE(remove(list));
    const Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 0);
    EXPECT_EQ(back.lost, 1);
    EXPECT_EQ(content(2), "hello");
}

TEST_F(GraceTest, APackageComesBackAsOne)
{
    storage_.notePackage("ann", "/p/letter.pages", 5);
    ASSERT_TRUE(remove(put("g", "/p/letter.pages/a", "hello")));
    ASSERT_EQ(undelete().broughtBack, 1);
    const ItemPage page =
        storage_.folder({.userName = "ann", .systemName = "iMac", .folder = "/p", .pageSize = 9})
            .value();
    EXPECT_TRUE(page.items.at(0).isPackage);
}

const std::string kChain = "/=stowline=/records/chain";

TEST_F(GraceTest, RecordsComeBackOnceAChainThatWasBegunAnewIsRemoved)
{
    std::vector<std::string> old;
    for (const char* name :
         {"00000001-begun", "00000001-finished", "00000002-begun", "00000002-finished"})
        old.push_back(put(std::string("old-") + name, kChain + "/" + name, name));
    const Names oldNames = names(kChain);
    for (const std::string& list : old)
        ASSERT_TRUE(remove(list));
    now_ += 1h;
    const std::string begun = put("new1", kChain + "/00000000-begun", "");
    EXPECT_EQ(deleted().left, 4);
    EXPECT_EQ(deleted().totalCount, 0);
    Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 0);
    EXPECT_EQ(back.left, 4);
    EXPECT_EQ(names(kChain), Names{"00000000-begun=of "});
    now_ += 1h;
    ASSERT_TRUE(remove(begun));
    EXPECT_EQ(deleted().left, 1);
    back = undelete();
    EXPECT_EQ(back.broughtBack, 4);
    EXPECT_EQ(back.left, 1); // two chains under one name are not mixed
    EXPECT_EQ(names(kChain), oldNames);
    // Whoever wants the other one removes this one again.
    now_ += 1h;
    for (const std::string& list : old)
        ASSERT_TRUE(remove(list));
    back = undelete();
    EXPECT_EQ(back.broughtBack, 1);
    EXPECT_EQ(back.left, 4);
}

TEST_F(GraceTest, ARecordDoesNotComeBackWhereOtherContentStandsUnderItsName)
{
    const std::string begun = put("1", kChain + "/00000005-begun", "5");
    const std::string finished = put("2", kChain + "/00000005-finished", "record");
    ASSERT_TRUE(remove(finished));
    ASSERT_TRUE(remove(begun));
    now_ += 1h;
    const std::string other = put("3", kChain + "/00000005-finished", "junk");
    Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 1);
    EXPECT_EQ(back.left, 1);
    ASSERT_TRUE(remove(other));
    back = undelete();
    EXPECT_EQ(back.broughtBack, 1);
    EXPECT_EQ(back.left, 1);
    EXPECT_EQ(content(2), "record");
    EXPECT_EQ(content(3), "");
    // The same content a second time is in nobody's way.
    ASSERT_TRUE(remove(finished));
    put("4", kChain + "/00000005-finished", "record");
    EXPECT_EQ(undelete().broughtBack, 1);
}

TEST_F(GraceTest, RecordsThatWereTakenOutOfALivingChainComeBackToIt)
{
    const std::string folder = "/=stowline=/records/chain/";
    const std::string begun = put("1", folder + "00000001-begun", "1");
    put("2", folder + "00000002-begun", "2");
    const std::string finished = put("3", folder + "00000001-finished", "1"); // later than 2 began
    put("4", folder + "00000002-finished", "2");
    const std::string note = put("5", folder + "00000001-forgotten", "");
    for (const std::string& list : {begun, finished, note})
        ASSERT_TRUE(remove(list));
    const Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 2);
    EXPECT_EQ(back.left, 0);
    EXPECT_EQ(names(folder), (Names{"00000001-begun=of 1", "00000001-finished=of 1",
                                    "00000002-begun=of 2", "00000002-finished=of 2"}));
}

TEST_F(GraceTest, ANoteOfForgettingGoesOnceAllIsBackAndIsToldElse)
{
    const std::string begun = put("1", kChain + "/00000001-begun", "1");
    const std::string file = put("2", "/d/a", "a");
    const std::string other = put("3", "/b", "b");
    put("4", kChain + "/00000001-forgotten", "");
    for (const std::string& list : {begun, file, other}) // and then it was killed
        ASSERT_TRUE(remove(list));
    EXPECT_EQ(undelete("/d").forgetting, 1);
    EXPECT_EQ(names(kChain), Names{"00000001-forgotten=of "});
    const Undeletion first = storage_.undelete({.userName = "ann"}, 1);
    EXPECT_EQ(first.remaining, 1);
    EXPECT_EQ(names(kChain), Names{"00000001-forgotten=of "});
    const Undeletion back = undelete();
    EXPECT_EQ(back.broughtBack, 1);
    EXPECT_EQ(back.forgetting, 0);
    EXPECT_EQ(names(kChain), Names{"00000001-begun=of 1"});
}

TEST_F(GraceTest, ANoteOfForgettingStaysWhereSomethingOfThatTimeIsTakenAway)
{
    const std::string file = put("1", "/a", "a");
    put("2", kChain + "/00000001-forgotten", "");
    execute("UPDATE versions SET stored_at = '2026-01-01 00:00:00'");
    ASSERT_TRUE(remove(file));
    ASSERT_EQ(letPass(std::chrono::days{7}), 1U);
    EXPECT_EQ(undelete().forgetting, 1);
    execute("UPDATE versions SET stored_at = '2026-01-01 00:00:01'"); // nothing since then
    EXPECT_EQ(undelete().forgetting, 0);
}

TEST_F(GraceTest, ANoteOfForgettingStaysWhereSomethingCannotComeBack)
{
    const std::string file = put("1", "/a", "a");
    put("2", kChain + "/00000001-forgotten", "");
    ASSERT_TRUE(remove(file));
    fs::remove(folder_.path() / "vol1/1/G/1");
    EXPECT_EQ(undelete().forgetting, 1);
}

TEST_F(GraceTest, AWholeMachineComesBack)
{
    put("g1", "/a", "one", -1, "laptop");
    put("g2", "/d/b", "two", -1, "laptop");
    put("g3", "/a", "other");
    for (const std::string& list : storage_.listIdsBelow("ann", "laptop", "/"))
        ASSERT_TRUE(remove(list));
    EXPECT_EQ(storage_.systems("ann"), Names{"iMac"});
    EXPECT_EQ(storage_.undelete({.userName = "ann", .systemName = "laptop"}, kNoLimit).broughtBack,
              2);
    EXPECT_EQ(storage_.systems("ann"), (Names{"iMac", "laptop"}));
}

TEST(Grace, NoDaysTakeAwayAtOnce)
{
    const test::TemporaryFolder folder;
    Storage storage(folder.path(), Storage::Clock::now, 0s);
    const UploadPlace place{"ann", storage.uploadPath("ann", 1, "G"), "g"};
    ASSERT_TRUE(storage.addPart(place, {.fileName = "f", .bytes = "x"}));
    ASSERT_EQ(storage.registerFile({.place = place,
                                    .systemName = "iMac",
                                    .folder = "/",
                                    .name = "a",
                                    .size = 1,
                                    .uploadedSize = 1}),
              RegistrationOutcome::success);
    const std::string list = storage.version("ann", 1)->listId;
    ASSERT_TRUE(storage.deleteVersion("ann", list));
    EXPECT_FALSE(fs::exists(folder.path() / "vol1/1/G/g"));
    EXPECT_EQ(storage.undelete({.userName = "ann"}, kNoLimit).broughtBack, 0);
    EXPECT_EQ(storage.usedBytes("ann"), 0U);
}

} // namespace
} // namespace stowline::devserver
