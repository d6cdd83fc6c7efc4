#include "stowline/backup/record/RecordReader.h"
#include "stowline/backup/record/RecordWriter.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

namespace {

using namespace stowline;
using namespace stowline::backup;

const std::string kDigest(64, 'a');

RecordHead someHead()
{
    return {.run = 12,
            .state = RecordState::finished,
            .description = {.username = "ann",
                            .systemName = "iMac",
                            .host = "imac.local",
                            .identity = {"1A2B", "ann", "default"},
                            .namedPaths = {"/home/ann", "/odd \xff"},
                            .rules = {"exclude *.o"},
                            .clientVersion = "1.0",
                            .key = {},
                            .begun = {1700000000, 5}},
            .ended = Timestamp{1700000100, 999999999},
            .baseline = RecordLink{11, kDigest},
            .predecessor = {11, kDigest},
            .differences = {3, 1000, 50000},
            .items = 2,
            .failed = 1,
            .newBytes = 10,
            .bytes = 20,
            .losses = {{5, 40, 100}, {9, 0, 0}}};
}

StoredItem fileAt(const std::string& path)
{
    return {.item = {.path = path,
                     .kind = ItemKind::file,
                     .size = 5000000000,
                     .modified = {-5, 999999999},
                     .changed = {1700000000, 1},
                     .mode = 04755,
                     .owner = 1000,
                     .group = 4294967295,
                     .ownerName = "ann",
                     .groupName = {},
                     .device = 3,
                     .inode = 18446744073709551615U,
                     .links = 2,
                     .linkTarget = {},
                     .deviceNumber = 0,
                     .attributes = {{"user.\xfe", std::string("\0\xff\n", 3)}}},
            .content = StoredContent{.version = "77",
                                     .list = "9",
                                     .digest = kDigest,
                                     .checksum = 0x0a0b0c0d,
                                     .storedSize = 4999999999,
                                     .kind = "plain",
                                     .key = "k",
                                     .baseline = "70",
                                     .run = 12},
            .sameFileAs = {},
            .readBegan = {1700000001, 2},
            .isStale = true,
            .changedWhileRead = true};
}

StoredItem folderAt(const std::string& path)
{
    return {.item = {.path = path, .kind = ItemKind::folder, .mode = 0755}};
}

StoredItem linkAt(const std::string& path, const std::string& target)
{
    return {.item = {.path = path, .kind = ItemKind::link, .mode = 0777, .linkTarget = target}};
}

StoredItem furtherName(const std::string& path, const std::string& first)
{
    return {.item = {.path = path, .kind = ItemKind::file, .size = 3}, .sameFileAs = first};
}

std::string record(const RecordHead& head, const std::vector<StoredItem>& items,
                   const std::vector<std::string>& gone = {})
{
    std::string bytes;
    RecordWriter writer(head, [&bytes](std::string_view piece) { bytes += piece; });
    for (const StoredItem& item : items)
        writer.write(item);
    for (const std::string& path : gone)
        writer.writeGone(path);
    writer.finish();
    EXPECT_EQ(writer.size(), bytes.size());
    EXPECT_EQ(writer.digest(), platform::Sha256::of(bytes));
    return bytes;
}

struct Heard {
    std::optional<RecordHead> head;
    std::vector<StoredItem> items;
    std::vector<std::string> gone;
    std::string digest;
};

Heard read(std::string_view bytes, std::size_t pieceSize = 1000)
{
    Heard heard;
    RecordReader reader(
        {.head = [&heard](const RecordHead& head) { heard.head = head; },
         .item = [&heard](const StoredItem& item) { heard.items.push_back(item); },
         .gone = [&heard](const std::string& path) { heard.gone.push_back(path); }});
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), pieceSize)))
        reader.feed(bytes.substr(0, pieceSize));
    reader.finish();
    heard.digest = reader.digest();
    return heard;
}

std::string packed(std::string_view text)
{
    std::string bytes;
    platform::GzipWriter writer([&bytes](std::string_view piece) { bytes += piece; });
    writer.write(text);
    writer.finish();
    return bytes;
}

std::string unpacked(std::string_view bytes)
{
    std::string text;
    platform::GzipReader reader([&text](std::string_view piece) { text += piece; }, 1U << 30);
    reader.feed(bytes);
    reader.finish();
    return text;
}

/// The record of some lines, whose end is as it should be.
std::string recordOf(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return packed(text + lineOf(RecordEnd{lines.size() - 1, platform::Sha256::of(text)}));
}

RecordFault::Kind refusalOf(const std::string& bytes)
{
    try {
        (void)read(bytes);
    } catch (const RecordFault& fault) {
        return fault.kind();
    }
    ADD_FAILURE() << "it was taken";
    return RecordFault::Kind::failed;
}

TEST(Record, GivesBackEveryFieldInPiecesOfAnySize)
{
    const RecordHead head = someHead();
    const std::vector<StoredItem> items{folderAt("/"), folderAt("/a"),
                                        furtherName("/a/z", "/a/\xff\x01\n\""),
                                        fileAt("/a/\xff\x01\n\""), linkAt("/b", "../\xfe x")};
    const std::string bytes = record(head, items, {"/c", "/d\xff"});
    for (const std::size_t piece : {std::size_t{1}, std::size_t{100}, bytes.size()}) {
        const Heard heard = read(bytes, piece);
        EXPECT_EQ(heard.head, head);
        EXPECT_EQ(heard.items, items);
        EXPECT_EQ(heard.gone, (std::vector<std::string>{"/c", "/d\xff"}));
        EXPECT_EQ(heard.digest, platform::Sha256::of(bytes));
    }
}

TEST(Record, TellsOfPlacesBehindTheItems)
{
    using Kind = PlaceNote::Kind;
    const std::vector<PlaceLine> places{
        {"/a",
         PlaceNote{"/a", Kind::walked, packedRules({"exclude *.o", "exclude-from a\nb\xff"})}},
        {"/a/\xff", PlaceNote{"/a/\xff", Kind::missed, "it cannot be read"}},
        {"/a/out", PlaceNote{"/a/out", Kind::leftOut, "hidden"}},
        {"/b", std::nullopt}};
    std::vector<std::string> lines{lineOf(someHead()), lineOf(folderAt("/a"))};
    for (const PlaceLine& place : places)
        lines.push_back(lineOf(place));
    std::vector<PlaceLine> heard;
    RecordReader reader({.place = [&heard](const PlaceLine& place) { heard.push_back(place); }});
    reader.feed(recordOf(lines));
    reader.finish();
    ASSERT_EQ(heard.size(), places.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        EXPECT_EQ(heard[i].path, places[i].path);
        EXPECT_EQ(heard[i].note, places[i].note);
    }
    EXPECT_EQ(lines[4], "{\"place\":\"/a/out\",\"note\":\"left_out\",\"why\":\"hidden\"}\n");
    EXPECT_EQ(lines[5], "{\"place\":\"/b\"}\n");
    std::swap(lines[1], lines[5]); // an item behind them
    EXPECT_EQ(refusalOf(recordOf(lines)), RecordFault::Kind::damaged);
    RecordHead full = someHead();
    full.baseline.reset();
    EXPECT_EQ(refusalOf(recordOf({lineOf(full), lineOf(places.back())})),
              RecordFault::Kind::damaged);
    for (const char* line : {R"({"place":"a","note":"missed"})", R"({"place":"/a","note":"other"})",
                             R"({"place":"/a","note":1})"})
        EXPECT_EQ(refusalOf(recordOf({lineOf(someHead()), std::string(line) + "\n"})),
                  RecordFault::Kind::damaged)
            << line;
}

TEST(Record, OfTheFirstFormatIsRead)
{
    std::string head = lineOf(someHead());
    const std::string now = "\"format\":2";
    head.replace(head.find(now), now.size(), "\"format\":1");
    EXPECT_EQ(read(recordOf({head, lineOf(folderAt("/a"))})).items,
              std::vector<StoredItem>{folderAt("/a")});
}

TEST(Record, HasAFormOnTheDisk)
{
    RecordHead head = someHead();
    head.baseline.reset();
    const std::string text = unpacked(record(head, {folderAt("/"), linkAt("/\xff", "b")}));
    const auto first = text.find('\n') + 1;
    EXPECT_EQ(
        text.substr(first, text.rfind("{\"end\"") - first),
        R"({"path":"/","kind":"folder","modified":[0,0],"changed":[0,0],"mode":493,"owner":0,"group":0,"owner_name":"","group_name":"","device":0,"inode":0,"links":1})"
        "\n"
        R"({"path_b64":"L/8=","kind":"link","modified":[0,0],"changed":[0,0],"mode":511,"owner":0,"group":0,"owner_name":"","group_name":"","device":0,"inode":0,"links":1,"target":"b"})"
        "\n");
    EXPECT_EQ(
        text.substr(0, first),
        R"({"record":"stowline run","format":2,"run":12,"state":"finished","predecessor":{"run":11,"sha256":")" +
            kDigest +
            R"("},"differences":{"records":3,"bytes":1000,"full_bytes":50000},"machine":"1A2B","user":"ann","profile":"default","username":"ann","system":"iMac","host":"imac.local","client":"1.0","key":"","begun":[1700000000,5],"ended":[1700000100,999999999],"paths":["/home/ann",{"b64":"L29kZCD/"}],"rules":["exclude *.o"],"items":2,"failed":1,"new_bytes":10,"bytes":20,"losses":[{"run":5,"gone":40,"items":100},{"run":9,"gone":0,"items":0}]})"
            "\n");
}

TEST(Record, IsReadByAScriptThatKnowsThePageAlone)
{
    const test::TemporaryFolder folder;
    folder.write("record", record(someHead(), {folderAt("/"), fileAt("/a/\xff")}, {"/b c"}));
    const auto script =
        test::runProgram({{"/usr/bin/python3", test::sourceFile("tests/read_record.py"),
                           (folder.path() / "record").string()}});
    EXPECT_EQ(script.status, 0) << script.errors;
    EXPECT_EQ(script.output, "folder - - /\nfile 5000000000 " + kDigest +
                                 " /a/\xff\ngone - - /b c\nrun 12, finished: 3 lines\n");
}

TEST(Record, RefusesEveryCutAndEveryChangedByte)
{
    const std::string bytes = record(someHead(), {folderAt("/"), fileAt("/a")});
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_EQ(refusalOf(bytes.substr(0, length)), RecordFault::Kind::damaged) << length;
    EXPECT_EQ(refusalOf(bytes + "x"), RecordFault::Kind::damaged);
    // Some bytes of gzip's own head say nothing of the content (time, system), nor do the bits that
    // fill up the last byte before its checksum and length; of all others each counts.
    constexpr std::size_t gzipHead = 10;
    constexpr std::size_t gzipEnd = 8;
    for (std::size_t at = gzipHead; at < bytes.size(); ++at) {
        if (at + gzipEnd + 1 == bytes.size())
            continue;
        std::string changed = bytes;
        changed[at] = static_cast<char>(changed[at] ^ 0x20);
        EXPECT_EQ(refusalOf(changed), RecordFault::Kind::damaged) << at;
    }
}

TEST(Record, RefusesLinesThatAreLeftOutDoubledOrReorderedWithAnEndThatHidesIt)
{
    const std::string head = lineOf(someHead());
    const std::string a = lineOf(folderAt("/a"));
    const std::string b = lineOf(fileAt("/a/b"));
    EXPECT_EQ(read(recordOf({head, a, b})).items.size(), 2U);
    EXPECT_EQ(refusalOf(recordOf({head, b, a})), RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(recordOf({head, a, a})), RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(recordOf({head, a, lineOf(GoneItem{"/a"})})), RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(recordOf({head, head})), RecordFault::Kind::damaged);
    const std::string end = lineOf(RecordEnd{2, platform::Sha256::of(head + a + b)});
    EXPECT_EQ(refusalOf(packed(head + a + end)), RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(packed(head + a + b + end + b)), RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(packed(head + a + b + end + "x")), RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(packed(head + a + b)), RecordFault::Kind::damaged);
    const std::string wrong = lineOf(RecordEnd{2, kDigest});
    EXPECT_EQ(refusalOf(packed(head + a + b + wrong)), RecordFault::Kind::damaged);
}

TEST(Record, RefusesPathsThatNoTreeHas)
{
    for (const std::string path :
         {"", "a", "a/b", "//", "//a", "/a//b", "/a/", "/..", "/a/../b", "/a/..", "/./a", "/a/."})
        EXPECT_FALSE(isItemPath(path)) << path;
    EXPECT_FALSE(isItemPath(std::string_view("/a\0b", 4)));
    EXPECT_FALSE(isItemPath("/" + std::string(70000, 'a')));
    for (const std::string path : {"/", "/a", "/a/b", "/...", "/a/..b", "/ \n"})
        EXPECT_TRUE(isItemPath(path)) << path;
    EXPECT_EQ(refusalOf(recordOf({lineOf(someHead()), lineOf(folderAt("/a/../../etc"))})),
              RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(recordOf({lineOf(someHead()), lineOf(GoneItem{"etc"})})),
              RecordFault::Kind::damaged);
    EXPECT_EQ(refusalOf(recordOf({lineOf(someHead()), lineOf(furtherName("/a", "/../b"))})),
              RecordFault::Kind::damaged);
}

TEST(Record, RefusesItemsThatCannotBe)
{
    const std::string head = lineOf(someHead());
    const auto refused = [&head](const std::string& line) {
        return refusalOf(recordOf({head, line + "\n"})) == RecordFault::Kind::damaged;
    };
    EXPECT_TRUE(refused(R"([1])"));
    EXPECT_TRUE(refused(R"({"path":"/a")"));
    EXPECT_TRUE(refused(R"({"path":"/a"})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"door"})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","size":-1})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","size":"1"})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","mode":4096})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","owner":4294967296})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","modified":[0,1000000000]})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","modified":5})"));
    EXPECT_TRUE(refused(R"({"path_b64":"L2E","kind":"file"})"));
    EXPECT_TRUE(refused(R"({"path":"/a","kind":"file","content":{"sha256":"AB","crc32":"0"}})"));
    EXPECT_FALSE(refusalOf(recordOf({head, "{\"path\":\"/a\",\"kind\":\"file\",\"stale\":1}\n"})) !=
                 RecordFault::Kind::damaged);
    StoredItem folder = fileAt("/a");
    folder.item.kind = ItemKind::folder;
    EXPECT_EQ(refusalOf(recordOf({head, lineOf(folder)})), RecordFault::Kind::damaged);
    StoredItem later = fileAt("/a");
    later.content->run = 13;
    EXPECT_EQ(refusalOf(recordOf({head, lineOf(later)})), RecordFault::Kind::damaged);
}

TEST(Record, RefusesAHeadOfALaterFormatByItsName)
{
    std::string head = lineOf(someHead());
    head.replace(head.find("\"format\":2"), 10, "\"format\":3");
    EXPECT_EQ(refusalOf(recordOf({head})), RecordFault::Kind::tooNew);
}

TEST(Record, RefusesAHeadThatBuildsOnALaterRunOrOnItself)
{
    RecordHead head = someHead();
    head.baseline = RecordLink{12, kDigest};
    EXPECT_EQ(refusalOf(record(head, {})), RecordFault::Kind::damaged);
    head = someHead();
    head.predecessor.run = 13;
    EXPECT_EQ(refusalOf(record(head, {})), RecordFault::Kind::damaged);
}

TEST(Record, RefusesALossThatIsNone)
{
    for (const char* losses : {"5", "[5]", R"([{"run":-1}])"}) {
        std::string head = lineOf(someHead());
        const auto at = head.find("[{\"run\":5");
        head.replace(at, head.rfind(']') + 1 - at, losses);
        EXPECT_EQ(refusalOf(recordOf({head})), RecordFault::Kind::damaged) << losses;
    }
}

TEST(Record, TakesNoItemsOfARunThatHasOnlyBegunNorVanishedPathsOfAFullOne)
{
    RecordHead head = someHead();
    head.state = RecordState::begun;
    EXPECT_EQ(read(record(head, {})).items.size(), 0U);
    EXPECT_EQ(refusalOf(record(head, {folderAt("/")})), RecordFault::Kind::damaged);
    head = someHead();
    head.baseline.reset();
    EXPECT_EQ(refusalOf(record(head, {}, {"/a"})), RecordFault::Kind::damaged);
}

TEST(Record, RefusesALineWithoutEndBeforeItFillsTheMemory)
{
    EXPECT_EQ(refusalOf(packed(std::string(64U << 20, ' '))), RecordFault::Kind::damaged);
}

TEST(Record, PassesOverKeysItDoesNotKnow)
{
    std::string item = lineOf(folderAt("/a"));
    item.insert(1, R"("colour":{"of":["later","days"]},)");
    EXPECT_EQ(read(recordOf({lineOf(someHead()), item})).items.size(), 1U);
}

TEST(RecordName, IsWrittenAndRead)
{
    EXPECT_EQ(recordNameText({12, RecordState::begun, 0}), "00000012-begun");
    EXPECT_EQ(recordNameText({12, RecordState::unfinished, 3}), "00000012-unfinished-03");
    EXPECT_EQ(recordNameText({99999999, RecordState::finished, 0}), "99999999-finished");
    EXPECT_EQ(recordNameText({12, RecordState::forgotten, 0}), "00000012-forgotten");
    for (const RecordName name :
         {RecordName{1, RecordState::begun, 0}, RecordName{2, RecordState::unfinished, 99},
          RecordName{3, RecordState::finished, 0}, RecordName{4, RecordState::forgotten, 0}})
        EXPECT_EQ(parseRecordName(recordNameText(name)), name);
    for (const std::string text :
         {"", "1-begun", "00000000-begun", "00000001-begun2", "+0000001-begun",
          "00000001-unfinished-", "00000001-unfinished-00", "00000001-unfinished-1",
          "00000001-unfinished-100", "00000001-Finished", "00000001-forgotten2",
          "000000001-finished"})
        EXPECT_EQ(parseRecordName(text), std::nullopt) << text;
}

TEST(RecordChainName, KeepsIdentitiesApart)
{
    EXPECT_EQ(chainName({"1A-2B", "ann", "default"}), "1A-2B.ann.default");
    EXPECT_EQ(chainName({"M", "a.b", "c/d"}), "M.=b64=YS5i.=b64=Yy9k");
    EXPECT_NE(chainName({"M", "a.b", "c"}), chainName({"M", "a", "b.c"}));
}

TEST(ChainName, ComesApartAsItWasPutTogether)
{
    for (const ChainIdentity& identity :
         {ChainIdentity{"1A2B-3C", "ann", "default"}, ChainIdentity{"m.1", "a.b \xff", "wörk/2"}})
        EXPECT_EQ(parseChainName(chainName(identity)), identity);
    for (const char* text : {"", "a", "a.b", "a.b.c.d", "a.=b64=?.c", "a.=b64=YQ==.c"})
        EXPECT_EQ(parseChainName(text), std::nullopt) << text;
}

} // namespace
