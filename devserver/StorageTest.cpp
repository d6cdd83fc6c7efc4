#include "devserver/Storage.h"

#include "devserver/PartEndpoint.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/ContentFile.h"
#include "stowline/platform/files/Files.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <atomic>
#include <map>
#include <thread>

namespace stowline::devserver {
namespace {

std::uint32_t crcOf(const std::string& bytes)
{
    return static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

class StorageTest : public testing::Test {
protected:
    UploadPlace place(const std::string& guid) { return {"ann", path_, guid}; }

    platform::Outcome<HeldUpload, PartRefusal>
    add(const std::string& guid, const std::string& bytes,
        std::optional<std::uint64_t> offset = std::nullopt)
    {
        return storage_.addPart(
            place(guid),
            {.fileName = "f", .bytes = bytes, .offset = offset, .checksum = crcOf(bytes)});
    }

    RegistrationOutcome store(const std::string& guid, const std::string& folder,
                              const std::string& name, const std::string& content,
                              bool isDelta = false, std::int64_t baseline = -1)
    {
        EXPECT_TRUE(content.empty() || add(guid, content));
        return storage_.registerFile({.place = place(guid),
                                      .systemName = "iMac",
                                      .folder = folder,
                                      .name = name,
                                      .size = content.size(),
                                      .uploadedSize = content.size(),
                                      .checksum = crcOf(content),
                                      .clientDate = "2026-01-01 00:00:00",
                                      .isDelta = isDelta,
                                      .baselineVersion = baseline});
    }

    std::vector<std::string> names(const std::string& folder, const ItemQuery& more = {})
    {
        ItemQuery query = more;
        query.userName = "ann";
        query.systemName = "iMac";
        query.folder = folder;
        query.pageSize = 100;
        std::vector<std::string> found;
        const ItemPage page = storage_.folder(query).value();
        for (const StoredItem& item : page.items)
            found.push_back(item.name + (item.isFolder ? "/" : ""));
        return found;
    }

    std::string content(const HeldUpload& held)
    {
        return platform::readFile(folder_.path() / held.serverFile.substr(1)).value_or("(none)");
    }

    test::TemporaryFolder folder_;
    Storage storage_{folder_.path()};
    std::string path_ = storage_.uploadPath("ann", 1, "G");
};

using Names = std::vector<std::string>;

TEST_F(StorageTest, PartsBecomeAFile)
{
    EXPECT_EQ(add("g", "hello ")->receivedBytes, 6U);
    EXPECT_EQ(add("g", "world")->parts, 2U);
    EXPECT_FALSE(storage_.held(place("g"))->isRegistered);
    EXPECT_EQ(store("g", "/home/ann", "a.txt", ""), RegistrationOutcome::incompleteFile);
    const Registration whole{.place = place("g"),
                             .systemName = "iMac",
                             .folder = "/home/ann/",
                             .name = "a.txt",
                             .size = 11,
                             .uploadedSize = 11,
                             .checksum = crcOf("hello world"),
                             .clientDate = "2026-01-01 00:00:00"};
    EXPECT_EQ(storage_.registerFile(whole), RegistrationOutcome::success);
    EXPECT_EQ(storage_.registerFile(whole), RegistrationOutcome::success); // a repetition
    EXPECT_EQ(content(storage_.held(place("g")).value()), "hello world");
    EXPECT_TRUE(storage_.held(place("g"))->isRegistered);
    EXPECT_EQ(names(""), Names{"home/"});
    EXPECT_EQ(names("/home/ann"), Names{"a.txt"});
    EXPECT_EQ(storage_.systems("ann"), Names{"iMac"});
    EXPECT_EQ(storage_.usedBytes("ann"), 11U);
}

TEST_F(StorageTest, RepeatedPartsChangeNothingAndGapsAreRefused)
{
    EXPECT_TRUE(add("g", "hello ", 0));
    EXPECT_EQ(add("g", "hello ", 0)->receivedBytes, 6U);
    const auto late = add("g", "late", 10);
    ASSERT_FALSE(late);
    EXPECT_EQ(late.error(), PartRefusal::gap);
    EXPECT_EQ(add("g", "world", 6)->receivedBytes, 11U);
    const auto wrong = storage_.addPart(place("g"), {.fileName = "f", .bytes = "x", .checksum = 1});
    ASSERT_FALSE(wrong);
    EXPECT_EQ(wrong.error(), PartRefusal::checksumMismatch);
    EXPECT_EQ(content(storage_.held(place("g")).value()), "hello world");
}

TEST_F(StorageTest, NamesNeverLeaveTheFolder)
{
    for (const std::string& guid :
         {std::string("../../../etc/passwd"), std::string("/abs"), std::string(".."),
          std::string("a\0b", 3), std::string(300, 'g'), std::string("\xff\xfe")}) {
        const auto held = add(guid, "x");
        ASSERT_TRUE(held);
        EXPECT_TRUE(held->serverFile.starts_with(path_)) << held->serverFile;
        EXPECT_EQ(held->serverFile.find(".."), std::string::npos);
        EXPECT_EQ(content(*held), "x");
    }
    for (const UploadPlace& foreign :
         {UploadPlace{"ann", "/vol1/2/G/", "g"}, UploadPlace{"bob", path_, "g"}}) {
        const auto refused = storage_.addPart(foreign, {.fileName = "f", .bytes = "x"});
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error(), PartRefusal::noSuchPath);
    }
    EXPECT_FALSE(storage_.held({"ann", "/etc/", "g"}));
    EXPECT_NE(storage_.uploadPath("ann", 1, "../x").find("/vol1/1/x-"), std::string::npos);
}

TEST_F(StorageTest, WhatIsNotWholeIsNotRegistered)
{
    ASSERT_TRUE(add("g", "hello"));
    Registration registration{.place = place("g"),
                              .systemName = "iMac",
                              .folder = "/",
                              .name = "a",
                              .size = 5,
                              .uploadedSize = 5,
                              .checksum = crcOf("other")};
    EXPECT_EQ(storage_.registerFile(registration), RegistrationOutcome::checksumMismatch);
    EXPECT_EQ(storage_.held(place("g"))->receivedBytes, 0U); // to be sent again
    ASSERT_TRUE(add("g", "hello"));
    registration.checksum = crcOf("hello");
    // Somebody changes the content behind the service's back.
    const auto file = folder_.path() / storage_.held(place("g"))->serverFile.substr(1);
    ASSERT_TRUE(platform::writeFileAtomically(file, "hellx"));
    EXPECT_EQ(storage_.registerFile(registration), RegistrationOutcome::checksumMismatch);
    registration.name = "a/b";
    EXPECT_EQ(storage_.registerFile(registration), RegistrationOutcome::invalidPath);
    EXPECT_EQ(names(""), Names());
}

TEST_F(StorageTest, EmptyFilesNeedNoPart)
{
    EXPECT_EQ(store("g", "/", "empty", ""), RegistrationOutcome::success);
    EXPECT_EQ(content(storage_.held(place("g")).value()), "");
    EXPECT_EQ(names("/"), Names{"empty"});
}

TEST_F(StorageTest, KeepsVersionsAndDeltasByTheirBaseline)
{
    EXPECT_EQ(store("g1", "/d", "f", "one"), RegistrationOutcome::success);
    EXPECT_EQ(store("g2", "/d", "f", "second"), RegistrationOutcome::success);
    ItemQuery query{.userName = "ann", .systemName = "iMac", .folder = "/d", .pageSize = 10};
    const StoredItem item = storage_.folder(query)->items.at(0);
    EXPECT_EQ(item.size, 6U);
    EXPECT_EQ(item.versions, 2);
    const auto versions = storage_.versions("ann", item.id);
    ASSERT_EQ(versions.size(), 2U);
    EXPECT_EQ(versions[0].size, 6U);
    EXPECT_EQ(versions[1].checksum, crcOf("one"));
    EXPECT_TRUE(storage_.versions("bob", item.id).empty());

    EXPECT_EQ(store("g3", "/d", "f", "d", true, 999), RegistrationOutcome::invalidBaseline);
    EXPECT_EQ(store("g4", "/d", "f", "d", true, versions[0].id), RegistrationOutcome::success);
    EXPECT_FALSE(storage_.deleteVersion("ann", versions[0].listId)); // the delta needs it
    EXPECT_FALSE(storage_.deleteVersion("bob", versions[1].listId));
    EXPECT_TRUE(storage_.deleteVersion("ann", versions[1].listId));
    EXPECT_FALSE(storage_.deleteVersion("ann", versions[1].listId));
    EXPECT_EQ(storage_.versions("ann", item.id).size(), 2U);
}

TEST_F(StorageTest, AFileWithoutVersionsGoesWithItsFolders)
{
    EXPECT_EQ(store("g1", "/a/b/c", "f", "one"), RegistrationOutcome::success);
    EXPECT_EQ(store("g2", "/a", "g", "two"), RegistrationOutcome::success);
    ItemQuery query{.userName = "ann", .systemName = "iMac", .folder = "/a/b/c", .pageSize = 10};
    const auto item = storage_.folder(query)->items.at(0);
    EXPECT_TRUE(storage_.deleteVersion("ann", storage_.versions("ann", item.id).at(0).listId));
    EXPECT_EQ(names("/a"), Names{"g"});
}

TEST_F(StorageTest, SortsAndPages)
{
    EXPECT_EQ(store("g1", "/d", "b", "333"), RegistrationOutcome::success);
    EXPECT_EQ(store("g2", "/d", "a", "1"), RegistrationOutcome::success);
    EXPECT_EQ(store("g3", "/d", "c", "22"), RegistrationOutcome::success);
    EXPECT_EQ(names("/d"), (Names{"a", "b", "c"}));
    EXPECT_EQ(names("/d", {.isAscending = false}), (Names{"c", "b", "a"}));
    EXPECT_EQ(names("/d", {.sortField = "Size"}), (Names{"a", "c", "b"}));
    EXPECT_EQ(names("/d", {.startIndex = 2}), Names{"c"});
    ItemQuery query{.userName = "ann", .systemName = "iMac", .folder = "/d", .pageSize = 1};
    EXPECT_EQ(storage_.folder(query)->totalCount, 3);
    query.sortField = "name; DROP TABLE items";
    EXPECT_FALSE(storage_.folder(query));
}

TEST_F(StorageTest, SearchesBelowAFolder)
{
    EXPECT_EQ(store("g1", "/d/e", "Letter 100%.txt", "1"), RegistrationOutcome::success);
    EXPECT_EQ(store("g2", "/d", "letter.doc", "1"), RegistrationOutcome::success);
    EXPECT_EQ(store("g3", "/dx", "letter.txt", "1"), RegistrationOutcome::success);
    const auto found = [&](const std::string& folder, const std::string& text,
                           const std::string& extensions = "") {
        Names list;
        const ItemQuery query{.userName = "ann", .folder = folder, .pageSize = 10};
        const ItemPage page = storage_.search(query, text, extensions).value();
        for (const auto& item : page.items)
            list.push_back(item.folder + "/" + item.name);
        return list;
    };
    EXPECT_EQ(found("", "LETTER").size(), 3U);
    EXPECT_EQ(found("/d", "letter"), (Names{"/d/e/Letter 100%.txt", "/d/letter.doc"}));
    EXPECT_EQ(found("", "0%."), Names{"/d/e/Letter 100%.txt"});
    EXPECT_EQ(found("", "_"), Names());
    EXPECT_EQ(found("", "letter.*").size(), 2U);
    EXPECT_EQ(found("", "letter", "doc,pdf"), Names{"/d/letter.doc"});
}

TEST_F(StorageTest, PackagesAreFoldersShownAsOne)
{
    storage_.notePackage("ann", "/p/A.photoslibrary", 12);
    EXPECT_EQ(store("g1", "/p/A.photoslibrary", "x", "1"), RegistrationOutcome::success);
    const ItemQuery query{.userName = "ann", .systemName = "iMac", .folder = "/p", .pageSize = 9};
    EXPECT_TRUE(storage_.folder(query)->items.at(0).isPackage);
}

TEST_F(StorageTest, EverythingIsThereAgainAfterAnEnd)
{
    ASSERT_TRUE(add("g", "half"));
    EXPECT_EQ(store("h", "/", "whole", "whole"), RegistrationOutcome::success);
    Storage again(folder_.path());
    EXPECT_EQ(again.held(place("g"))->receivedBytes, 4U);
    EXPECT_TRUE(again.held(place("h"))->isRegistered);
}

TEST_F(StorageTest, SeveralSendersOfOneFileEndWithOneWholeFile)
{
    constexpr int parts = 20;
    std::vector<std::jthread> senders;
    for (int sender = 0; sender < 8; ++sender) {
        senders.emplace_back([this] {
            for (std::uint64_t part = 0; part < parts; ++part)
                (void)add("g", std::string(1000, static_cast<char>('a' + part)), part * 1000);
        });
    }
    senders.clear();
    std::string whole;
    for (int part = 0; part < parts; ++part)
        whole += std::string(1000, static_cast<char>('a' + part));
    EXPECT_EQ(content(storage_.held(place("g")).value()), whole);
    EXPECT_EQ(storage_.registerFile({.place = place("g"),
                                     .systemName = "s",
                                     .folder = "/",
                                     .name = "n",
                                     .size = whole.size(),
                                     .uploadedSize = whole.size(),
                                     .checksum = crcOf(whole)}),
              RegistrationOutcome::success);
}

TEST_F(StorageTest, RegistrationsThatArriveTogetherAllBecomeVersions)
{
    constexpr int senders = 8;
    constexpr int files = 10;
    {
        std::vector<std::jthread> threads;
        for (int sender = 0; sender < senders; ++sender) {
            threads.emplace_back([this, sender] {
                for (int file = 0; file < files; ++file) {
                    const std::string name = std::to_string(sender) + "-" + std::to_string(file);
                    EXPECT_EQ(store(name, "/d", name, name), RegistrationOutcome::success);
                }
            });
        }
    }
    const ItemQuery query{.userName = "ann", .systemName = "iMac", .folder = "/d", .pageSize = 999};
    const ItemPage page = storage_.folder(query).value();
    EXPECT_EQ(page.totalCount, senders * files);
    for (const StoredItem& item : page.items)
        EXPECT_EQ(storage_.versions("ann", item.id).size(), 1U) << item.name;
    EXPECT_EQ(storage_.usedBytes("ann"), 3U * senders * files); // the sum of all
}

TEST_F(StorageTest, OneRegistrationThatCannotBeDoesNotHinderTheOthers)
{
    SQLite::Database other((folder_.path() / "files.sqlite").string(), SQLite::OPEN_READWRITE,
                           5000);
    other.exec("CREATE TRIGGER no BEFORE INSERT ON items WHEN new.name = 'bad'"
               " BEGIN SELECT raise(ABORT, 'no'); END");
    std::atomic<int> good = 0;
    std::atomic<int> refused = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 16; ++i) {
            threads.emplace_back([&, i] {
                const std::string guid = "g" + std::to_string(i);
                try {
                    good += store(guid, "/d", i % 4 == 0 ? "bad" : guid, guid) ==
                            RegistrationOutcome::success;
                } catch (const std::exception&) {
                    ++refused;
                }
            });
        }
    }
    EXPECT_EQ(good, 12);
    EXPECT_EQ(refused, 4);
    EXPECT_EQ(names("/d").size(), 12U);
    EXPECT_FALSE(storage_.held(place("g0"))->isRegistered); // it was told so, and it is so
}

TEST_F(StorageTest, DeletedContentIsGoneFromTheDiskOnceItsDaysOfGraceAreOver)
{
    EXPECT_EQ(store("g1", "/d", "f", "one"), RegistrationOutcome::success);
    EXPECT_EQ(store("g2", "/d", "f", "second"), RegistrationOutcome::success);
    const auto fileOf = [this](const char* guid) {
        return folder_.path() / (path_ + guid).substr(1);
    };
    const ItemQuery query{.userName = "ann", .systemName = "iMac", .folder = "/d", .pageSize = 9};
    const std::int64_t file = storage_.folder(query)->items.at(0).id;
    EXPECT_EQ(storage_.usedBytes("ann"), 9U);
    EXPECT_TRUE(storage_.deleteVersion("ann", storage_.versions("ann", file).at(1).listId));
    EXPECT_TRUE(std::filesystem::exists(fileOf("g1")));
    auto now = Storage::Clock::now();
    Storage later(folder_.path(), [&now] { return now; });
    std::size_t dropped = 0;
    for (int hour = 0; hour < 8 * 24; ++hour) {
        now += std::chrono::hours{1};
        dropped += later.dropDeleted();
    }
    EXPECT_EQ(dropped, 1U);
    EXPECT_FALSE(std::filesystem::exists(fileOf("g1")));
    EXPECT_TRUE(std::filesystem::exists(fileOf("g2")));
    EXPECT_EQ(storage_.usedBytes("ann"), 6U);
}

TEST_F(StorageTest, PlainRequestsCarryEverythingInHeaders)
{
    std::map<std::string, std::string> headers{{"X-FileName", "L2E="},
                                               {"X-UserName", "YW5u"},
                                               {"X-ServerDirPath", "L3ZvbDEvMS9HLw=="},
                                               {"X-Guid", "g;offset=0;crc32=3610a686"},
                                               {"X-PortionSize", "5"}};
    const RequestHeaders header = [&headers](const char* name) { return headers[name]; };
    EXPECT_EQ(answerPartInfo(storage_, header)["X-ReceivedBytes"], "0");
    auto answer = answerPart(storage_, header, "hello");
    EXPECT_EQ(answer["Status"], "true") << answer["X-Reason"];
    EXPECT_EQ(answer["X-NextPart"], "2");
    EXPECT_EQ(answerPartInfo(storage_, header)["X-ReceivedBytes"], "5");
    EXPECT_EQ(answerPart(storage_, header, "hello!")["X-Reason"],
              "the part is larger than announced");
    headers["X-Guid"] = "g;offset=5;crc32=1";
    EXPECT_EQ(answerPart(storage_, header, "hello")["Status"], "false");
    headers["X-FileName"] = "no base64";
    EXPECT_EQ(answerPartInfo(storage_, header)["Status"], "false");
}

TEST(ContentFile, LeavesZerosOutButKeepsTheSize)
{
    const test::TemporaryFolder folder;
    const auto path = folder.path() / "deep/er/file";
    auto file = platform::ContentFile::openOrCreate(path);
    const std::string zeros(1 << 20, '\0');
    file.write(0, zeros);
    file.write(zeros.size(), "x" + zeros);
    std::string whole;
    file.read([&whole](std::string_view bytes) { whole += bytes; });
    EXPECT_EQ(whole, zeros + "x" + zeros);
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_LT(status.st_blocks * 512, 100000);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    file.write(0, "abc");
    file.write(0, std::string(2, '\0')); // inside the file zeros are written
    whole.clear();
    file.read([&whole](std::string_view bytes) { whole += bytes; });
    EXPECT_EQ(whole.substr(0, 4), std::string("\0\0c\0", 4));
}

TEST(StrictBase64, TakesOnlyWhatIsBase64)
{
    using platform::strictlyDecodedBase64;
    EXPECT_EQ(strictlyDecodedBase64(""), "");
    EXPECT_EQ(strictlyDecodedBase64("YQ=="), "a");
    EXPECT_EQ(strictlyDecodedBase64("YWI="), "ab");
    EXPECT_EQ(strictlyDecodedBase64("/+8A"), std::string("\xff\xef\0", 3));
    for (const char* bad : {"YQ", "YQ=", "Y===", "YQ==\n", "Y Q=", "YQ=a", "é==="})
        EXPECT_FALSE(strictlyDecodedBase64(bad)) << bad;
}

} // namespace
} // namespace stowline::devserver
