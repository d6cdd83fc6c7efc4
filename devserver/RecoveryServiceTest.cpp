// Getting content back: tickets, parts, what damage is told, what nobody wanted.
#include "devserver/BackupService.h"
#include "devserver/RecoveryEndpoint.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

namespace stowline::devserver {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::uint32_t crcOf(const std::string& bytes)
{
    return static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

class RecoveryTest : public testing::Test {
protected:
    RecoveryTest()
    {
        for (const char* user : {"ann", "bob"})
            EXPECT_EQ(accounts_.open({.userName = user, .password = "p", .email = "a@b"}),
                      AccountOutcome::success);
        ticket_ = tickets_.give("ann");
    }

    RegistrationOutcome store(const std::string& guid, const std::string& content)
    {
        const UploadPlace place{"ann", path_, guid};
        EXPECT_TRUE(content.empty() ||
                    storage_.addPart(place, {.fileName = "f", .bytes = content}));
        return storage_.registerFile({.place = place,
                                      .systemName = "iMac",
                                      .folder = "/d",
                                      .name = guid,
                                      .size = content.size(),
                                      .uploadedSize = content.size(),
                                      .checksum = crcOf(content)});
    }

    HeldUpload held(const std::string& guid) { return storage_.held({"ann", path_, guid}).value(); }

    std::int64_t idOf(const std::string& guid) { return held(guid).versionId; }

    fs::path fileOf(const std::string& guid) { return folder_.path() / (path_ + guid).substr(1); }

    ContentState stateOf(std::int64_t id, bool readsAll = false)
    {
        return storage_.contentState(storage_.version("ann", id).value(), readsAll);
    }

    /// The answer to a request for a part, with headers changed.
    DownloadAnswer download(const std::map<std::string, std::string>& more)
    {
        std::map<std::string, std::string> headers{{"X-UserName", "YW5u"},
                                                   {"X-Ticket", ticket_},
                                                   {"X-VersionID", "1"},
                                                   {"X-Offset", "0"},
                                                   {"X-Length", "100"}};
        for (const auto& [name, value] : more)
            headers[name] = value;
        return answerDownload(storage_, tickets_,
                              [&headers](const char* name) { return headers[name]; });
    }

    std::string refusalOf(const std::map<std::string, std::string>& more)
    {
        DownloadAnswer answer = download(more);
        EXPECT_EQ(answer.headers["Status"], "false");
        EXPECT_EQ(answer.body, "");
        return answer.headers["X-Reason"];
    }

    void overwrite(const fs::path& file, const std::string& content)
    {
        std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
    }

    std::chrono::system_clock::time_point now_ = std::chrono::system_clock::now();
    test::TemporaryFolder folder_;
    Accounts accounts_{folder_.path() / "service.sqlite"};
    Storage storage_{folder_.path(), [this] { return now_; }};
    Tickets tickets_{folder_.path() / "tickets.sqlite", accounts_, 3600s, [this] { return now_; }};
    std::string path_ = storage_.uploadPath("ann", 1, "G");
    std::string ticket_;
};

TEST_F(RecoveryTest, ATicketIsForOneAccountAndOneHour)
{
    EXPECT_TRUE(tickets_.isGood(ticket_, "ann"));
    EXPECT_FALSE(tickets_.isGood(ticket_, "bob"));
    EXPECT_FALSE(tickets_.isGood(ticket_, "nobody"));
    EXPECT_FALSE(tickets_.isGood("", "ann"));
    EXPECT_FALSE(tickets_.isGood(ticket_.substr(1), "ann"));
    EXPECT_NE(tickets_.give("ann"), ticket_);
    EXPECT_GE(ticket_.size(), 64U);
    now_ += 3599s;
    EXPECT_TRUE(tickets_.isGood(ticket_, "ann"));
    now_ += 1s;
    EXPECT_FALSE(tickets_.isGood(ticket_, "ann"));
}

TEST_F(RecoveryTest, ATicketEndsWithThePassword)
{
    EXPECT_EQ(accounts_.changePassword("ann", "wrong", "new"),
              AccountOutcome::invalidUserNameOrPassword);
    EXPECT_EQ(accounts_.changePassword("ann", "p", ""), AccountOutcome::invalidPassword);
    EXPECT_TRUE(tickets_.isGood(ticket_, "ann"));
    EXPECT_EQ(accounts_.changePassword("ann", "p", "new"), AccountOutcome::success);
    EXPECT_FALSE(tickets_.isGood(ticket_, "ann"));
    EXPECT_TRUE(tickets_.isGood(tickets_.give("ann"), "ann"));
    EXPECT_FALSE(accounts_.signIn("ann", "p")); // although it was right once
    EXPECT_TRUE(accounts_.signIn("ann", "new"));
}

TEST_F(RecoveryTest, TicketsOutliveTheServiceAsDigestsOnly)
{
    Tickets again(folder_.path() / "tickets.sqlite", accounts_, 3600s, [this] { return now_; });
    EXPECT_TRUE(again.isGood(ticket_, "ann"));
    for (const auto& file : fs::directory_iterator(folder_.path()))
        EXPECT_EQ(platform::readFile(file.path()).value_or("").find(ticket_), std::string::npos)
            << file.path();
}

TEST_F(RecoveryTest, PartsComeByOffsetAndLengthWithTheirChecksum)
{
    ASSERT_EQ(store("g", "hello world"), RegistrationOutcome::success);
    DownloadAnswer answer = download({{"X-Offset", "6"}, {"X-Length", "3"}});
    EXPECT_EQ(answer.headers["Status"], "true") << answer.headers["X-Reason"];
    EXPECT_EQ(answer.body, "wor");
    EXPECT_EQ(answer.headers["X-VersionSize"], "11");
    EXPECT_EQ(answer.headers["X-Digest"], platform::Sha256::of("hello world"));
    EXPECT_EQ(std::stoul(answer.headers["X-Checksum"], nullptr, 16), crcOf("wor"));
    EXPECT_EQ(download({{"X-Offset", "6"}}).body, "world");
    answer = download({{"X-Offset", "11"}});
    EXPECT_EQ(answer.headers["Status"], "true");
    EXPECT_EQ(answer.body, "");
    EXPECT_EQ(answer.headers["X-Checksum"], "00000000");
}

TEST_F(RecoveryTest, WhyThereIsNoPartIsOneWord)
{
    ASSERT_EQ(store("g", "hello"), RegistrationOutcome::success);
    EXPECT_EQ(refusalOf({{"X-Ticket", ""}}), "TicketRefused");
    EXPECT_EQ(refusalOf({{"X-Ticket", tickets_.give("bob")}}), "TicketRefused");
    EXPECT_EQ(refusalOf({{"X-UserName", "no base64"}}), "TicketRefused");
    // Another account's version is not a version to bob.
    EXPECT_EQ(refusalOf({{"X-UserName", "Ym9i"}, {"X-Ticket", tickets_.give("bob")}}),
              "NoSuchVersion");
    EXPECT_EQ(refusalOf({{"X-VersionID", "2"}}), "NoSuchVersion");
    EXPECT_EQ(refusalOf({{"X-VersionID", "one"}}), "NoSuchVersion");
    EXPECT_EQ(refusalOf({{"X-VersionID", "18446744073709551615"}}), "NoSuchVersion");
    EXPECT_EQ(refusalOf({{"X-Offset", "6"}}), "OutOfRange");
    EXPECT_EQ(refusalOf({{"X-Offset", "18446744073709551615"}}), "OutOfRange");
    EXPECT_EQ(refusalOf({{"X-Offset", "-1"}}), "InvalidRequest");
    EXPECT_EQ(refusalOf({{"X-Length", ""}}), "InvalidRequest");
    EXPECT_EQ(refusalOf({{"X-Length", std::to_string(kLongestDownload + 1)}}), "LengthTooLarge");
}

TEST_F(RecoveryTest, PartsThatAreNoVersionYetAreNotHandedOut)
{
    ASSERT_TRUE(storage_.addPart({"ann", path_, "g"}, {.fileName = "f", .bytes = "hello"}));
    EXPECT_EQ(refusalOf({}), "NoSuchVersion");
    EXPECT_FALSE(held("g").isRegistered);
}

TEST_F(RecoveryTest, ChangedShortenedAndMissingContentIsToldApart)
{
    for (const char* guid : {"changed", "shortened", "longer", "missing", "whole"})
        ASSERT_EQ(store(guid, "hello world"), RegistrationOutcome::success);
    std::map<std::string, std::int64_t> ids;
    for (const char* guid : {"changed", "shortened", "longer", "missing", "whole"})
        ids[guid] = idOf(guid);
    overwrite(fileOf("changed"), "hello w0rld");
    overwrite(fileOf("shortened"), "hello worl");
    overwrite(fileOf("longer"), "hello world!");
    fs::remove(fileOf("missing"));
    EXPECT_EQ(stateOf(ids["changed"]), ContentState::damaged);
    EXPECT_EQ(stateOf(ids["changed"]), ContentState::damaged); // as it is known by now
    EXPECT_EQ(stateOf(ids["shortened"]), ContentState::damaged);
    EXPECT_EQ(stateOf(ids["longer"]), ContentState::damaged);
    EXPECT_EQ(stateOf(ids["missing"]), ContentState::missing);
    EXPECT_EQ(stateOf(ids["whole"]), ContentState::whole);
    const auto reason = [&](const char* guid) {
        return refusalOf({{"X-VersionID", std::to_string(ids[guid])}});
    };
    EXPECT_EQ(reason("changed"), "ContentDamaged");
    EXPECT_EQ(reason("shortened"), "ContentDamaged");
    EXPECT_EQ(reason("longer"), "ContentDamaged");
    EXPECT_EQ(reason("missing"), "ContentMissing");
    EXPECT_EQ(download({{"X-VersionID", std::to_string(ids["whole"])}}).body, "hello world");
}

TEST_F(RecoveryTest, ContentThatWasOnlyCopiedBackIsWhole)
{
    ASSERT_EQ(store("g", "hello"), RegistrationOutcome::success);
    overwrite(fileOf("g"), "hellx");
    const std::int64_t id = 1;
    EXPECT_EQ(stateOf(id), ContentState::damaged);
    overwrite(fileOf("g"), "hello"); // an operator puts the disk right
    EXPECT_EQ(stateOf(id), ContentState::whole);
    EXPECT_EQ(download({}).body, "hello");
}

TEST_F(RecoveryTest, LostContentCanBeUploadedAgainAsAnotherVersion)
{
    ASSERT_EQ(store("g", "hello"), RegistrationOutcome::success);
    const std::int64_t first = idOf("g");
    overwrite(fileOf("g"), "hellx");
    EXPECT_FALSE(held("g").isRegistered);
    EXPECT_EQ(held("g").receivedBytes, 0U);
    ASSERT_EQ(store("g", "hello"), RegistrationOutcome::success);
    const std::int64_t second = idOf("g");
    EXPECT_NE(second, first);
    EXPECT_EQ(stateOf(first), ContentState::damaged);
    EXPECT_EQ(stateOf(second), ContentState::whole);
    EXPECT_EQ(download({{"X-VersionID", std::to_string(second)}}).body, "hello");
    // The registration of what is lost is not a success either.
    fs::remove(fileOf("g"));
    EXPECT_EQ(storage_.registerFile({.place = {"ann", path_, "g"},
                                     .systemName = "iMac",
                                     .folder = "/d",
                                     .name = "g",
                                     .size = 5,
                                     .uploadedSize = 5}),
              RegistrationOutcome::incompleteFile);
}

TEST_F(RecoveryTest, APackedUploadIsKnownAgainByTheSizeOfWhatWasSent)
{
    const UploadPlace place{"ann", path_, "g"};
    ASSERT_TRUE(storage_.addPart(place, {.fileName = "f", .bytes = "packed"}));
    const Registration packed{.place = place,
                              .systemName = "iMac",
                              .folder = "/d",
                              .name = "g",
                              .size = 100,
                              .uploadedSize = 6,
                              .isCompressed = true};
    EXPECT_EQ(storage_.registerFile(packed), RegistrationOutcome::success);
    EXPECT_EQ(storage_.registerFile(packed), RegistrationOutcome::success);
    EXPECT_EQ(held("g").receivedBytes, 6U);
    EXPECT_EQ(download({}).body, "packed");
    EXPECT_EQ(storage_.usedBytes("ann"), 6U);
}

TEST_F(RecoveryTest, AnswersNameTheVersionOnceItIsOne)
{
    std::map<std::string, std::string> headers{{"X-FileName", "L2E="},
                                               {"X-UserName", "YW5u"},
                                               {"X-ServerDirPath", "L3ZvbDEvMS9HLw=="},
                                               {"X-Guid", "g"},
                                               {"X-PortionSize", "5"}};
    const RequestHeaders header = [&headers](const char* name) { return headers[name]; };
    EXPECT_FALSE(answerPart(storage_, header, "hello").contains("X-VersionID"));
    EXPECT_FALSE(answerPartInfo(storage_, header).contains("X-ListID"));
    ASSERT_EQ(store("g", ""), RegistrationOutcome::incompleteFile);
    ASSERT_EQ(storage_.registerFile({.place = {"ann", path_, "g"},
                                     .systemName = "iMac",
                                     .folder = "/d",
                                     .name = "g",
                                     .size = 5,
                                     .uploadedSize = 5}),
              RegistrationOutcome::success);
    const StoredVersion version = storage_.version("ann", 1).value();
    for (PartAnswer answer :
         {answerPartInfo(storage_, header), answerPart(storage_, header, "hello")}) {
        EXPECT_EQ(answer["X-Registered"], "true");
        EXPECT_EQ(answer["X-VersionID"], "1");
        EXPECT_EQ(answer["X-ListID"], version.listId);
    }
    EXPECT_TRUE(storage_.deleteVersion("ann", version.listId));
}

TEST_F(RecoveryTest, ThousandsOfVersionsAreAnsweredForInOneCall)
{
    constexpr int count = 5000;
    constexpr int stored = 20;
    for (int i = 1; i <= stored; ++i)
        ASSERT_EQ(store("g" + std::to_string(i), std::to_string(i)), RegistrationOutcome::success);
    const auto idAt = [](int place) { return place % stored + 1; };
    std::string numbers;
    for (int i = 0; i < count; ++i)
        numbers += (i == 0 ? "" : ",") + std::to_string(idAt(i));
    overwrite(fileOf("g7"), "x"); // of the same size
    fs::remove(fileOf("g9"));
    Deletions deletions(storage_, 0ms);
    const AccountServiceContext context{accounts_, storage_, Data(32), "", &tickets_};
    const Service service = backupService(context, deletions);
    const auto ask = [&](const std::string& chosen) {
        return service.find("getMetaDataAboutFilesToRecover")
            ->answer({{"strArrInp", chosen}, {"uName", "ann"}});
    };
    const Dictionary answer = ask(numbers + ",999999");
    const auto files =
        platform::valueAtKeyPath(answer, "getMetaDataAboutFilesToRecoverResult.files.FileMetaData");
    ASSERT_TRUE(files && files->array());
    ASSERT_EQ(files->array()->size(), static_cast<std::size_t>(count)); // and not the unknown one
    for (int i = 0; i < count; ++i) {
        const Dictionary& file = *files->array()->at(i).dictionary();
        const int id = idAt(i);
        ASSERT_EQ(platform::findText(file, "VersionID"), std::to_string(id));
        ASSERT_EQ(platform::findText(file, "State"), id == 7   ? "Damaged"
                                                     : id == 9 ? "Missing"
                                                               : "Whole");
    }
    const Dictionary& file = *files->array()->at(0).dictionary();
    EXPECT_EQ(platform::findText(file, "Digest"), platform::Sha256::of("1"));
    EXPECT_EQ(platform::findText(file, "StoredSize"), "1");
    EXPECT_EQ(platform::findText(file, "Checksum"), "83dcefb7");
    const auto unknown = ask("999999");
    EXPECT_EQ(platform::valueAtKeyPath(unknown, "getMetaDataAboutFilesToRecoverResult.Code"),
              Value("NoSuchVersion"));
}

TEST_F(RecoveryTest, ReadingAllIsAskedForWithAWord)
{
    ASSERT_EQ(store("g", "hello"), RegistrationOutcome::success);
    Deletions deletions(storage_, 0ms);
    const AccountServiceContext context{accounts_, storage_, Data(32), "", &tickets_};
    const Service service = backupService(context, deletions);
    const Dictionary answer = service.find("getMetaDataAboutFilesToRecover")
                                  ->answer({{"strArrInp", "read:1"}, {"uName", "ann"}});
    const auto files =
        platform::valueAtKeyPath(answer, "getMetaDataAboutFilesToRecoverResult.files.FileMetaData");
    ASSERT_TRUE(files && files->array() && files->array()->size() == 1);
    EXPECT_EQ(stateOf(1, true), ContentState::whole);
}

TEST_F(RecoveryTest, TicketsAreGivenForTheRightPasswordOnly)
{
    Deletions deletions(storage_, 0ms);
    const AccountServiceContext context{accounts_, storage_, Data(32), "", &tickets_};
    const Service service = backupService(context, deletions);
    const auto give = [&](const char* password) {
        return service.find("GetRestoreTicket")
            ->answer({{"userName", "ann"}, {"password", password}});
    };
    EXPECT_THROW(give("wrong"), ServiceFault);
    const Dictionary answer = give("p");
    const auto ticket = platform::valueAtKeyPath(answer, "GetRestoreTicketResult.Ticket");
    ASSERT_TRUE(ticket);
    EXPECT_TRUE(tickets_.isGood(ticket->text(), "ann"));
    EXPECT_EQ(platform::valueAtKeyPath(answer, "GetRestoreTicketResult.SecondsToLive"),
              Value("3600"));
}

TEST_F(RecoveryTest, PartsThatNobodyWantsGoAfterSevenDays)
{
    const auto hours = [this](int count) { now_ += std::chrono::hours(count); };
    ASSERT_EQ(store("whole", "whole"), RegistrationOutcome::success);
    ASSERT_TRUE(storage_.addPart({"ann", path_, "old"}, {.fileName = "f", .bytes = "old"}));
    ASSERT_TRUE(storage_.addPart({"ann", path_, "slow"}, {.fileName = "f", .bytes = "slow"}));
    hours(6 * 24);
    ASSERT_TRUE(storage_.addPart({"ann", path_, "slow"}, {.fileName = "f", .bytes = "er"}));
    hours(23);
    EXPECT_EQ(storage_.dropAbandoned(), 0U);
    hours(1);
    EXPECT_EQ(storage_.dropAbandoned(), 1U);
    EXPECT_FALSE(fs::exists(fileOf("old")));
    EXPECT_EQ(held("old").receivedBytes, 0U);
    EXPECT_EQ(held("slow").receivedBytes, 6U); // somebody went on with it
    EXPECT_TRUE(held("whole").isRegistered);
    EXPECT_TRUE(fs::exists(fileOf("whole")));
    EXPECT_EQ(storage_.dropAbandoned(), 0U);
}

TEST_F(RecoveryTest, FilesThatBelongToNothingGoToo)
{
    ASSERT_EQ(store("whole", "whole"), RegistrationOutcome::success);
    overwrite(fileOf("orphan"), "left by a deletion that was broken off");
    overwrite(fileOf("fresh"), "a part whose row is being written");
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(8 * 24);
    fs::last_write_time(fileOf("orphan"), old);
    fs::last_write_time(fileOf("whole"), old);
    EXPECT_EQ(storage_.dropAbandoned(), 1U);
    EXPECT_FALSE(fs::exists(fileOf("orphan")));
    EXPECT_TRUE(fs::exists(fileOf("fresh")));
    EXPECT_TRUE(held("whole").isRegistered);
}

TEST_F(RecoveryTest, ADatabaseOfBeforeIsBroughtUpToDate)
{
    ASSERT_EQ(store("g", "hello"), RegistrationOutcome::success);
    ASSERT_TRUE(storage_.addPart({"ann", path_, "half"}, {.fileName = "f", .bytes = "half"}));
    SQLite::Database database((folder_.path() / "files.sqlite").string(), SQLite::OPEN_READWRITE,
                              5000);
    for (const char* column : {"stored_size", "digest", "stamp", "is_whole"})
        database.exec(std::string("ALTER TABLE versions DROP COLUMN ") + column);
    database.exec("ALTER TABLE uploads DROP COLUMN changed_at");
    Storage again(folder_.path(), [this] { return now_; });
    EXPECT_TRUE(again.held({"ann", path_, "g"})->isRegistered);
    EXPECT_EQ(again.readPart("ann", 1, 0, 100).bytes, "hello");
    EXPECT_EQ(again.usedBytes("ann"), 5U);
    EXPECT_EQ(again.dropAbandoned(), 0U); // its seven days begin now
    overwrite(fileOf("g"), "hellx");
    EXPECT_EQ(again.readPart("ann", 1, 0, 100).outcome, ContentPart::Outcome::damaged);
}

TEST_F(RecoveryTest, ADeletionOutlivesADiskThatRefuses)
{
    ASSERT_EQ(store("g1", "hello"), RegistrationOutcome::success);
    ASSERT_EQ(store("g2", "hello"), RegistrationOutcome::success);
    SQLite::Database other((folder_.path() / "files.sqlite").string(), SQLite::OPEN_READWRITE,
                           5000);
    // As a full disk does: whatever is deleted fails.
    other.exec("CREATE TRIGGER full BEFORE DELETE ON versions BEGIN"
               " SELECT raise(ABORT, 'database or disk is full'); END");
    Deletions deletions(storage_, 0ms);
    const std::string guid = deletions.begin("ann", "iMac", "/d").value();
    while (deletions.state("ann", guid)->trouble.empty())
        std::this_thread::yield();
    EXPECT_NE(deletions.state("ann", guid)->trouble.find("full"), std::string::npos);
    EXPECT_EQ(deletions.state("ann", guid)->deleted, 0);
    EXPECT_FALSE(deletions.state("ann", guid)->isCompleted);
    other.exec("DROP TRIGGER full");
    while (!deletions.state("ann", guid)->isCompleted)
        std::this_thread::yield();
    EXPECT_EQ(deletions.state("ann", guid)->deleted, 2);
    EXPECT_EQ(deletions.state("ann", guid)->trouble, "");
    EXPECT_TRUE(storage_.systems("ann").empty());
    EXPECT_EQ(storage_.undelete({.userName = "ann"}, 100).broughtBack, 2); // each is kept once
}

TEST_F(RecoveryTest, AFolderThatWasAFileIsAFolderAgain)
{
    const auto put = [this](const std::string& guid, const std::string& folder,
                            const std::string& name) {
        const UploadPlace place{"ann", path_, guid};
        EXPECT_TRUE(storage_.addPart(place, {.fileName = "f", .bytes = guid}));
        EXPECT_EQ(storage_.registerFile({.place = place,
                                         .systemName = "iMac",
                                         .folder = folder,
                                         .name = name,
                                         .size = guid.size(),
                                         .uploadedSize = guid.size()}),
                  RegistrationOutcome::success);
    };
    const auto isFolder = [this] {
        const ItemQuery query{
            .userName = "ann", .systemName = "iMac", .folder = "/a", .pageSize = 10};
        return storage_.folder(query)->items.at(0).isFolder;
    };
    put("g1", "/a/x", "f");
    EXPECT_TRUE(isFolder());
    put("g2", "/a", "x");
    EXPECT_FALSE(isFolder());
    put("g3", "/a/x", "h");
    EXPECT_TRUE(isFolder());
}

TEST_F(RecoveryTest, SizesThatAddUpToMoreThanThereIsDoNotEndTheSums)
{
    const auto put = [this](const std::string& guid, std::uint64_t size) {
        const UploadPlace place{"ann", path_, guid};
        EXPECT_TRUE(storage_.addPart(place, {.fileName = "f", .bytes = "x"}));
        return storage_.registerFile({.place = place,
                                      .systemName = "iMac",
                                      .folder = "/a",
                                      .name = guid,
                                      .size = size,
                                      .uploadedSize = 1,
                                      .isCompressed = true});
    };
    EXPECT_EQ(put("g1", 0x7fffffffffffffffU), RegistrationOutcome::success);
    EXPECT_EQ(put("g2", 0x7fffffffffffffffU), RegistrationOutcome::success);
    EXPECT_EQ(put("g3", 0x8000000000000000U), RegistrationOutcome::invalidSize);
    EXPECT_EQ(storage_.machines("ann").at(0).bytes, 9223372036854774784U);
    EXPECT_EQ(storage_.usedBytes("ann"), 2U);
}

} // namespace
} // namespace stowline::devserver
