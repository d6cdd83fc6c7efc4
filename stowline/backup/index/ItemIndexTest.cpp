#include "stowline/backup/index/ItemIndex.h"

#include "stowline/backup/index/ItemColumns.h"
#include "stowline/backup/index/PathKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {
namespace {

using Paths = std::vector<std::string>;

const std::string kDigest(64, 'a');

StoredItem folderAt(const std::string& path)
{
    StoredItem item;
    item.item.path = path;
    item.item.kind = ItemKind::folder;
    return item;
}

StoredItem fileAt(const std::string& path, std::uint64_t size = 1, std::uint64_t run = 1)
{
    StoredItem item;
    item.item.path = path;
    item.item.size = size;
    item.content = StoredContent{.version = "v" + path, .digest = kDigest, .run = run};
    return item;
}

class ItemIndexTest : public ::testing::Test {
protected:
    void put(const Paths& folders, const Paths& files, std::uint64_t run = 1)
    {
        for (const auto& path : folders)
            index_.put(folderAt(path), run);
        for (const auto& path : files)
            index_.put(fileAt(path), run);
    }

    [[nodiscard]] Paths everythingAt(const std::string& below = "/") const
    {
        Paths paths;
        index_.forEach(below, [&](const StoredItem& item) {
            paths.push_back(item.item.path);
            return true;
        });
        return paths;
    }

    /// "+path" for what is there, "-path" for what is gone.
    [[nodiscard]] Paths changesSince(std::uint64_t run) const
    {
        Paths changes;
        index_.forEachChangeSince(run, [&](const ItemIndex::Change& change) {
            changes.push_back((change.item ? "+" : "-") + change.path);
            EXPECT_TRUE(!change.item || change.item->item.path == change.path);
            return true;
        });
        return changes;
    }

    [[nodiscard]] Paths namesIn(const std::string& folder) const
    {
        Paths names;
        for (const StoredItem& item : index_.itemsIn(folder))
            names.emplace_back(nameOf(item.item.path));
        return names;
    }

    ItemIndex index_ = ItemIndex::temporary();
};

TEST_F(ItemIndexTest, GivesBackEveryFieldOfAnItem)
{
    StoredItem item;
    item.item = {.path = "/home/a b/\xff\n",
                 .kind = ItemKind::file,
                 .size = 0xffff'ffff'ffffU,
                 .modified = {-7, 999'999'999},
                 .changed = {1'700'000'000, 1},
                 .mode = 07755,
                 .owner = 4'294'967'295U,
                 .group = 1000,
                 .ownerName = "ann",
                 .groupName = "staff",
                 .device = 0xffff'ffff'ffff'ffffU,
                 .inode = 0x8000'0000'0000'0000U,
                 .links = 3,
                 .linkTarget = "..//\x01x",
                 .deviceNumber = 0x0103,
                 .attributes = {{"user.a", std::string("\0,:7", 4)}, {"user.empty", ""}}};
    item.content = StoredContent{.version = "12",
                                 .list = "l",
                                 .digest = "0123456789abcdef0123456789abcdef"
                                           "0123456789abcdef0123456789abcdef",
                                 .checksum = 0xffff'ffffU,
                                 .storedSize = 99,
                                 .kind = "packed",
                                 .key = "k1",
                                 .baseline = "11",
                                 .run = 4};
    item.readBegan = {1'700'000'001, 2};
    item.isStale = true;
    index_.put(item, 5);
    EXPECT_EQ(index_.find(item.item.path), item);

    item.isStale = false;
    item.changedWhileRead = true;
    item.content = std::nullopt;
    item.sameFileAs = "/home/first";
    item.item.attributes = {};
    index_.put(item, 6);
    EXPECT_EQ(index_.find(item.item.path), item);
}

TEST_F(ItemIndexTest, KnowsEveryKind)
{
    for (const auto kind : {ItemKind::file, ItemKind::folder, ItemKind::link, ItemKind::pipe,
                            ItemKind::socket, ItemKind::characterDevice, ItemKind::blockDevice}) {
        StoredItem item = folderAt("/x");
        item.item.kind = kind;
        index_.put(item, 1);
        EXPECT_EQ(index_.find("/x")->item.kind, kind);
    }
}

TEST_F(ItemIndexTest, KeepsADigestThatIsNone)
{
    for (const std::string digest : {"", "abc", "XYZ"}) {
        auto item = fileAt("/x");
        item.content->digest = digest;
        index_.put(item, 1);
        EXPECT_EQ(index_.find("/x"), item);
    }
}

TEST_F(ItemIndexTest, FindsNothingWhereNothingIs)
{
    put({"/a"}, {"/a/f"});
    EXPECT_EQ(index_.find("/a/g"), std::nullopt);
    EXPECT_EQ(index_.find("/b/f"), std::nullopt);
    EXPECT_EQ(index_.find("/"), std::nullopt);
    EXPECT_TRUE(index_.itemsIn("/none").empty());
}

TEST_F(ItemIndexTest, ListsAFolderByTheBytesOfItsNamesAndNotWhatIsBelow)
{
    put({"/", "/a", "/a/b", "/a-b"}, {"/a/\xff", "/a/z", "/a/A", "/a/b/deep", "/a-b/x"});
    EXPECT_EQ(namesIn("/a"), (Paths{"A", "b", "z", "\xff"}));
    EXPECT_EQ(namesIn("/"), (Paths{"a", "a-b"}));
    EXPECT_EQ(namesIn(""), (Paths{"/"}));
}

TEST_F(ItemIndexTest, ListsAFolderInPages)
{
    put({}, {"/f/1", "/f/2", "/f/3"});
    const auto first = index_.itemsIn("/f", "", 2);
    ASSERT_EQ(first.size(), 2U);
    EXPECT_EQ(first[1].item.path, "/f/2");
    const auto second = index_.itemsIn("/f", "2", 2);
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].item.path, "/f/3");
}

TEST_F(ItemIndexTest, GoesThroughEverythingInWalkingOrder)
{
    const Paths folders{"/", "/a", "/a/b", "/a-b", "/\x01", "/a/b\x01"};
    const Paths files{"/a/b/c", "/a/b-c", "/a-b/x", "/a.txt", "/ab", "/b", "/\x01/x", "/a/b\x01/y"};
    put(folders, files);
    Paths all = folders;
    all.insert(all.end(), files.begin(), files.end());
    std::ranges::sort(all, [](const auto& l, const auto& r) { return comparePaths(l, r) < 0; });
    EXPECT_EQ(everythingAt("/"), all);
}

TEST_F(ItemIndexTest, GoesThroughWhatIsAtAndBelowAPath)
{
    put({"/", "/a", "/a/b", "/a-b", "/a\x01"}, {"/a/b/c", "/a-b/x", "/a\x01/y", "/a/z"});
    EXPECT_EQ(everythingAt("/a"), (Paths{"/a", "/a/b", "/a/b/c", "/a/z"}));
    EXPECT_EQ(everythingAt("/a/z"), (Paths{"/a/z"}));
    EXPECT_EQ(everythingAt("/none"), Paths{});
}

TEST_F(ItemIndexTest, GoesThroughItemsWhoseFoldersNobodyPut)
{
    put({"/home/u"}, {"/home/u/x", "/srv/deep/y"});
    EXPECT_EQ(everythingAt("/"), (Paths{"/home/u", "/home/u/x", "/srv/deep/y"}));
    EXPECT_EQ(everythingAt("/srv"), (Paths{"/srv/deep/y"}));
}

TEST_F(ItemIndexTest, StopsWhenToldTo)
{
    put({"/a", "/a/b"}, {"/a/b/1", "/a/b/2", "/a/c"});
    for (std::size_t most = 1; most <= 5; ++most) {
        std::size_t taken = 0;
        index_.forEach("/", [&](const StoredItem&) { return ++taken < most; });
        EXPECT_EQ(taken, most);
    }
}

TEST_F(ItemIndexTest, MayBeChangedWhileItIsGoneThrough)
{
    for (int i = 0; i < 1000; ++i)
        index_.put(fileAt("/f/" + std::to_string(10000 + i)), 1);
    int taken = 0;
    index_.forEach("/", [&](const StoredItem& item) {
        ++taken;
        index_.put(fileAt(item.item.path, 7, 2), 2);
        return true;
    });
    EXPECT_EQ(taken, 1000);
    EXPECT_EQ(changesSince(1).size(), 1000U);
}

TEST_F(ItemIndexTest, TellsWhatChangedSinceARunAndOnlyThat)
{
    put({"/", "/a", "/b"}, {"/a/1", "/a/2", "/b/3"}, 1);
    put({}, {"/a/2", "/c"}, 2);
    index_.remove("/b/3", 3);
    EXPECT_EQ(changesSince(0), (Paths{"+/", "+/a", "+/a/1", "+/a/2", "+/b", "-/b/3", "+/c"}));
    EXPECT_EQ(changesSince(1), (Paths{"+/a/2", "-/b/3", "+/c"}));
    EXPECT_EQ(changesSince(2), (Paths{"-/b/3"}));
    EXPECT_EQ(changesSince(3), Paths{});
}

TEST_F(ItemIndexTest, TellsAVanishedFolderOnceAndForgetsAllBelow)
{
    put({"/a", "/a/b", "/a-b"}, {"/a/b/c", "/a/d", "/a-b/e"}, 1);
    index_.remove("/a", 2);
    EXPECT_EQ(changesSince(1), (Paths{"-/a"}));
    EXPECT_EQ(everythingAt(), (Paths{"/a-b", "/a-b/e"}));
    EXPECT_EQ(index_.find("/a/b/c"), std::nullopt);
    EXPECT_TRUE(index_.itemsIn("/a/b").empty());
}

TEST_F(ItemIndexTest, TellsWhatWasLostWhenAFolderCameBackWithOtherContent)
{
    put({"/a"}, {"/a/old"}, 1);
    index_.remove("/a", 2);
    put({"/a"}, {"/a/new"}, 3);
    EXPECT_EQ(changesSince(1), (Paths{"+/a", "+/a/new", "-/a/old"}));
    EXPECT_EQ(changesSince(2), (Paths{"+/a", "+/a/new"}));
}

TEST_F(ItemIndexTest, TellsWhatStandsInAFolderThatIsGone)
{
    put({"/a"}, {"/a/x", "/a/y"}, 1);
    index_.remove("/a", 2);
    put({}, {"/a/y"}, 3);
    EXPECT_EQ(changesSince(1), (Paths{"-/a", "+/a/y"}));
}

TEST_F(ItemIndexTest, ForgetsWhatWasInAFolderThatBecameAFile)
{
    put({"/a", "/a/b"}, {"/a/b/c"}, 1);
    put({}, {"/a"}, 2);
    EXPECT_EQ(everythingAt(), (Paths{"/a"}));
    EXPECT_EQ(changesSince(1), (Paths{"+/a", "-/a/b"}));
}

TEST_F(ItemIndexTest, LeavesAloneWhatWasNeverKnownOrIsGoneAlready)
{
    put({"/a"}, {"/a/x"}, 1);
    index_.remove("/a/none", 2);
    index_.remove("/nowhere/x", 2);
    EXPECT_EQ(changesSince(1), Paths{});
    index_.remove("/a/x", 2);
    index_.remove("/a/x", 3);
    EXPECT_EQ(changesSince(2), Paths{});
}

TEST_F(ItemIndexTest, RemovesTheRootWithEverything)
{
    put({"/", "/a"}, {"/a/x"}, 1);
    index_.remove("/", 2);
    EXPECT_EQ(everythingAt(), Paths{});
    EXPECT_EQ(changesSince(1), (Paths{"-/"}));
}

TEST_F(ItemIndexTest, CountsWhatWentAfterARunWithWhatWasBelowIt)
{
    ItemIndex index = ItemIndex::temporary();
    for (const char* path : {"/a/x", "/a/y", "/b", "/c"})
        index.put({.item = {.path = path, .kind = ItemKind::file}}, 1);
    index.put({.item = {.path = "/a", .kind = ItemKind::folder}}, 1);
    EXPECT_EQ(index.goneSince(0), 0U);
    index.remove("/c", 2);
    index.remove("/a", 3);
    EXPECT_EQ(index.goneSince(1), 4U);
    EXPECT_EQ(index.goneSince(2), 3U);
    EXPECT_EQ(index.goneSince(3), 0U);
    index.put({.item = {.path = "/a/x", .kind = ItemKind::file}}, 4);
    EXPECT_EQ(index.goneSince(2), 2U) << "one is back";
}

TEST_F(ItemIndexTest, ForgetsTheNotesOfWhatVanished)
{
    put({"/a"}, {"/a/x", "/a/y"}, 1);
    index_.remove("/a/x", 2);
    index_.remove("/a/y", 3);
    index_.forgetVanished(2);
    EXPECT_EQ(changesSince(0), (Paths{"+/a", "-/a/y"}));
    put({}, {"/a/x"}, 4);
    EXPECT_EQ(everythingAt(), (Paths{"/a", "/a/x"}));
}

TEST_F(ItemIndexTest, CountsItemsAndTheBytesOfWhatHasContent)
{
    put({"/a"}, {}, 1);
    index_.put(fileAt("/a/x", 5'000'000'000), 1);
    index_.put(fileAt("/a/y", 7), 1);
    auto further = fileAt("/a/z", 7);
    further.content = std::nullopt;
    further.sameFileAs = "/a/y";
    index_.put(further, 1);
    EXPECT_EQ(index_.itemCount(), 4U);
    EXPECT_EQ(index_.contentBytes(), 5'000'000'007U);
    index_.remove("/a/x", 2);
    EXPECT_EQ(index_.itemCount(), 3U);
    EXPECT_EQ(index_.contentBytes(), 7U);
    index_.clear();
    EXPECT_EQ(index_.itemCount(), 0U);
    EXPECT_EQ(index_.contentBytes(), 0U);
}

TEST_F(ItemIndexTest, KeepsThePositionUntilItIsCleared)
{
    EXPECT_EQ(index_.position(), IndexPosition{});
    index_.setPosition({7, "abc"});
    EXPECT_EQ(index_.position(), (IndexPosition{7, "abc"}));
    index_.clear();
    EXPECT_EQ(index_.position(), IndexPosition{});
}

TEST_F(ItemIndexTest, AsksFirstForTheVersionsThatNobodyAskedForTheLongest)
{
    index_.put(fileAt("/3", 1, 3), 3);
    index_.put(fileAt("/1", 1, 1), 3);
    index_.put(fileAt("/2", 1, 2), 3);
    index_.put(folderAt("/0"), 1);
    EXPECT_EQ(index_.longestUnconfirmed(2), (Paths{"/1", "/2"}));
    index_.setConfirmed("/1", 4);
    EXPECT_EQ(index_.longestUnconfirmed(9), (Paths{"/2", "/3", "/1"}));
    EXPECT_EQ(changesSince(3), Paths{});
}

TEST_F(ItemIndexTest, AsksForEveryVersionWithinThirtyRuns)
{
    for (int i = 0; i < 90; ++i)
        index_.put(fileAt("/d" + std::to_string(i % 7) + "/" + std::to_string(i), 1, 1), 1);
    std::set<std::string> asked;
    for (std::uint64_t run = 2; run < 32; ++run) {
        for (const std::string& path : index_.longestUnconfirmed(3)) {
            EXPECT_TRUE(asked.insert(path).second) << path;
            index_.setConfirmed(path, run);
        }
    }
    EXPECT_EQ(asked.size(), 90U);
}

TEST_F(ItemIndexTest, CountsAVersionAsConfirmedAsLongAsItIsTheSame)
{
    index_.put(fileAt("/a", 1, 1), 1);
    index_.put(fileAt("/b", 1, 2), 2);
    index_.setConfirmed("/a", 3);
    auto touched = fileAt("/a", 1, 1);
    touched.item.mode = 0600;
    index_.put(touched, 4);
    EXPECT_EQ(index_.longestUnconfirmed(1), (Paths{"/b"}));
    auto stored = fileAt("/b", 2, 5);
    stored.content->version = "other";
    index_.put(stored, 5);
    EXPECT_EQ(index_.longestUnconfirmed(1), (Paths{"/a"}));
}

TEST_F(ItemIndexTest, HoldsAHundredThousandEntriesInOneFolder)
{
    constexpr int count = 100'000;
    for (int i = 0; i < count; ++i)
        index_.put(fileAt("/big/" + std::to_string(i)), 1);
    EXPECT_EQ(index_.itemCount(), static_cast<std::uint64_t>(count));
    const auto items = index_.itemsIn("/big");
    ASSERT_EQ(items.size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(std::ranges::is_sorted(
        items, {}, [](const StoredItem& item) -> const std::string& { return item.item.path; }));
    EXPECT_EQ(index_.find("/big/77777"), fileAt("/big/77777"));
}

/// A set of paths kept beside the index must always be the same as the index.
TEST_F(ItemIndexTest, AgreesWithASimpleModelWhateverIsDone)
{
    std::mt19937 random(20);
    const auto less = [](const auto& l, const auto& r) { return comparePaths(l, r) < 0; };
    std::vector<std::string> known;
    const std::string bytes = "ab-\x01\xff";
    for (int step = 0; step < 3000; ++step) {
        std::string path;
        for (auto depth = 1 + random() % 4; depth > 0; --depth)
            path.append("/").append(1 + random() % 2, bytes[random() % bytes.size()]);
        const auto isAt = [&](const std::string& p) { return p == path; };
        const auto isBelow = [&](const std::string& p) { return p.starts_with(path + "/"); };
        const auto run = static_cast<std::uint64_t>(step + 1);
        const bool isFolder = random() % 2 == 0;
        if (random() % 3 == 0) {
            index_.remove(path, run);
            std::erase_if(known, [&](const auto& p) { return isAt(p) || isBelow(p); });
        } else {
            index_.put(isFolder ? folderAt(path) : fileAt(path), run);
            std::erase_if(known,
                          [&](const auto& p) { return isAt(p) || (!isFolder && isBelow(p)); });
            known.push_back(path);
        }
        if (step % 50 == 0) {
            std::ranges::sort(known, less);
            ASSERT_EQ(everythingAt("/"), known);
        }
    }
}

/// Whoever holds the tree as of a run and applies the changes since then has the tree of now.
TEST_F(ItemIndexTest, ChangesSinceARunMakeTheOldTreeTheNewOne)
{
    std::mt19937 random(7);
    const auto randomPath = [&] {
        std::string path;
        for (auto depth = 1 + random() % 3; depth > 0; --depth)
            path.append("/").append(1, "abc"[random() % 3]);
        return path;
    };
    std::vector<Paths> trees{{}};
    for (std::uint64_t run = 1; run <= 60; ++run) {
        for (int change = 0; change < 6; ++change) {
            const auto path = randomPath();
            if (random() % 3 == 0)
                index_.remove(path, run);
            else
                index_.put(random() % 2 == 0 ? folderAt(path) : fileAt(path), run);
        }
        trees.push_back(everythingAt());
        const auto since = random() % run;
        Paths tree = trees[since];
        for (const std::string& change : changesSince(since)) {
            const std::string path = change.substr(1);
            std::erase_if(tree, [&](const auto& p) {
                return p == path || (change[0] == '-' && p.starts_with(path + "/"));
            });
            if (change[0] == '+')
                tree.push_back(path);
        }
        std::ranges::sort(tree,
                          [](const auto& l, const auto& r) { return comparePaths(l, r) < 0; });
        ASSERT_EQ(tree, trees.back()) << "since " << since << " at " << run;
    }
}

TEST(PathKey, SortsAsTreesAreWalked)
{
    std::mt19937 random(3);
    const std::string bytes = "ab/-\x01\xff";
    std::vector<std::string> paths{"/"};
    for (int i = 0; i < 300; ++i) {
        std::string path;
        for (auto depth = 1 + random() % 3; depth > 0; --depth)
            path.append("/").append(1 + random() % 2, "ab-\x01\xff"[random() % 5]);
        paths.push_back(path);
    }
    for (const auto& left : paths) {
        EXPECT_EQ(pathOfKey(pathKey(left)), left);
        for (const auto& right : paths)
            EXPECT_EQ(comparePaths(left, right) < 0, pathKey(left) < pathKey(right))
                << left << " " << right;
    }
}

TEST(PackedAttributes, AreRefusedWhenTornOrForged)
{
    std::vector<ExtendedAttribute> attributes;
    const std::string packed = packedAttributes({{"user.a", "bc"}});
    EXPECT_EQ(packed, "6:user.a,2:bc,");
    for (std::size_t length = 1; length < packed.size(); ++length)
        EXPECT_FALSE(unpackAttributes(packed.substr(0, length), attributes)) << length;
    for (const char* forged : {"x", "-1:a,", "99999999999999999999:a,1:b,",
                               "18446744073709551615:a,1:b,", "1:a;1:b,", ":,:,"})
        EXPECT_FALSE(unpackAttributes(forged, attributes)) << forged;
}

} // namespace
} // namespace stowline::backup
