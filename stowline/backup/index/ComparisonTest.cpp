#include "stowline/backup/index/Comparison.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace stowline::backup {
namespace {

using Change = std::function<void(ItemRecord&)>;

constexpr Timestamp kRead{1000, 500};

StoredItem storedFile()
{
    StoredItem stored;
    stored.item = {.path = "/f",
                   .kind = ItemKind::file,
                   .size = 10,
                   .modified = {900, 1},
                   .changed = {910, 2},
                   .mode = 0644,
                   .owner = 1,
                   .group = 2,
                   .ownerName = "ann",
                   .groupName = "staff",
                   .device = 7,
                   .inode = 8,
                   .links = 1};
    stored.content = StoredContent{.digest = std::string(64, 'a')};
    stored.readBegan = kRead;
    return stored;
}

StoredItem storedOf(ItemKind kind)
{
    StoredItem stored = storedFile();
    stored.item.kind = kind;
    stored.item.size = 0;
    stored.content = std::nullopt;
    stored.readBegan = {};
    return stored;
}

Decision after(const StoredItem& known, const Change& change, const ComparisonOptions& options = {})
{
    ItemRecord now = known.item;
    change(now);
    return compare(&known, now, known.sameFileAs, options);
}

struct Row {
    const char* name;
    Change change;
    Decision always;        ///< by default
    Decision ignoringTime;  ///< with ignoresChangeTime
    Decision ignoringInode; ///< with ignoresInode
    Decision ignoringBoth;
    Decision ofOthers; ///< of an item that is not a file, by default
};

constexpr Decision kSame{};
constexpr Decision kMetadata{Verdict::recorded, ChangeReason::metadata};

constexpr Decision read(ChangeReason reason)
{
    return {Verdict::read, reason};
}

TEST(Comparison, TakesEveryFieldIntoAccount)
{
    const auto size = read(ChangeReason::size);
    const auto mtime = read(ChangeReason::modified);
    const auto ctime = read(ChangeReason::changed);
    const auto inode_ = read(ChangeReason::inode);
    const std::vector<Row> rows{
        {"nothing", [](ItemRecord&) {}, kSame, kSame, kSame, kSame, kSame},
        {"size", [](ItemRecord& now) { ++now.size; }, size, size, size, size, kMetadata},
        {"modified", [](ItemRecord& now) { now.modified.seconds -= 1; }, mtime, mtime, mtime, mtime,
         kMetadata},
        {"modified, nanoseconds", [](ItemRecord& now) { ++now.modified.nanoseconds; }, mtime, mtime,
         mtime, mtime, kMetadata},
        {"changed", [](ItemRecord& now) { now.changed.seconds -= 1; }, ctime, kSame, ctime, kSame,
         kMetadata},
        {"changed, nanoseconds", [](ItemRecord& now) { ++now.changed.nanoseconds; }, ctime, kSame,
         ctime, kSame, kMetadata},
        {"inode", [](ItemRecord& now) { ++now.inode; }, inode_, inode_, kSame, kSame, kMetadata},
        {"device", [](ItemRecord& now) { ++now.device; }, kSame, kSame, kSame, kSame, kSame},
        {"mode", [](ItemRecord& now) { now.mode = 0600; }, kMetadata, kMetadata, kMetadata,
         kMetadata, kMetadata},
        {"owner", [](ItemRecord& now) { ++now.owner; }, kMetadata, kMetadata, kMetadata, kMetadata,
         kMetadata},
        {"group", [](ItemRecord& now) { ++now.group; }, kMetadata, kMetadata, kMetadata, kMetadata,
         kMetadata},
        {"owner's name", [](ItemRecord& now) { now.ownerName = "bob"; }, kMetadata, kMetadata,
         kMetadata, kMetadata, kMetadata},
        {"group's name", [](ItemRecord& now) { now.groupName = "bob"; }, kMetadata, kMetadata,
         kMetadata, kMetadata, kMetadata},
        {"links", [](ItemRecord& now) { ++now.links; }, kMetadata, kMetadata, kMetadata, kMetadata,
         kMetadata},
        {"target", [](ItemRecord& now) { now.linkTarget = "x"; }, kMetadata, kMetadata, kMetadata,
         kMetadata, kMetadata},
        {"device number", [](ItemRecord& now) { ++now.deviceNumber; }, kMetadata, kMetadata,
         kMetadata, kMetadata, kMetadata},
        {"attributes",
         [](ItemRecord& now) {
             now.attributes = {{"user.a", "b"}};
         },
         kSame, kMetadata, kSame, kMetadata, kSame},
    };
    for (const Row& row : rows) {
        const auto file = storedFile();
        EXPECT_EQ(after(file, row.change), row.always) << row.name;
        EXPECT_EQ(after(file, row.change, {.ignoresChangeTime = true}), row.ignoringTime)
            << row.name;
        EXPECT_EQ(after(file, row.change, {.ignoresInode = true}), row.ignoringInode) << row.name;
        EXPECT_EQ(after(file, row.change, {.ignoresChangeTime = true, .ignoresInode = true}),
                  row.ignoringBoth)
            << row.name;
        EXPECT_EQ(after(storedOf(ItemKind::link), row.change), row.ofOthers) << row.name;
        const auto trusting = after(file, row.change, {.trustsNothing = true});
        EXPECT_EQ(trusting, read(ChangeReason::asked)) << row.name;
    }
}

TEST(Comparison, ReadsWhatIsNewOrOfAnotherKind)
{
    const auto file = storedFile();
    EXPECT_EQ(compare(nullptr, file.item, {}, {}), read(ChangeReason::newItem));
    const auto link = storedOf(ItemKind::link);
    EXPECT_EQ(compare(nullptr, link.item, {}, {}),
              (Decision{Verdict::recorded, ChangeReason::newItem}));
    EXPECT_EQ(compare(&link, file.item, {}, {}), read(ChangeReason::kind));
    EXPECT_EQ(compare(&file, link.item, {}, {}), (Decision{Verdict::recorded, ChangeReason::kind}));
}

TEST(Comparison, ReadsWhatWasNotStoredAsOneState)
{
    auto known = storedFile();
    known.changedWhileRead = true;
    EXPECT_EQ(after(known, [](ItemRecord&) {}), read(ChangeReason::changedWhileRead));
    known = storedFile();
    known.content = std::nullopt;
    EXPECT_EQ(after(known, [](ItemRecord&) {}), read(ChangeReason::noContent));
}

TEST(Comparison, DescribesAnewWhatWasCarriedForward)
{
    auto known = storedFile();
    known.isStale = true;
    EXPECT_EQ(after(known, [](ItemRecord&) {}), (Decision{Verdict::recorded, ChangeReason::stale}));
    EXPECT_EQ(after(known, [](ItemRecord& now) { ++now.size; }), read(ChangeReason::size));
}

TEST(Comparison, FollowsTheFirstNameOfAHardLink)
{
    auto further = storedFile();
    further.content = std::nullopt;
    further.sameFileAs = "/e";
    EXPECT_EQ(compare(&further, further.item, "/e", {}), kSame);
    EXPECT_EQ(compare(&further, further.item, "/e", {.trustsNothing = true}), kSame);
    EXPECT_EQ(compare(&further, further.item, "/d", {}),
              (Decision{Verdict::recorded, ChangeReason::hardLink}));
    EXPECT_EQ(compare(&further, further.item, {}, {}), read(ChangeReason::hardLink));
    const auto first = storedFile();
    EXPECT_EQ(compare(&first, first.item, "/e", {}),
              (Decision{Verdict::recorded, ChangeReason::hardLink}));
}

TEST(Comparison, DoesNotCountTheNamesOfAFolder)
{
    const auto folder = storedOf(ItemKind::folder);
    EXPECT_EQ(after(folder, [](ItemRecord& now) { ++now.links; }), kSame);
}

TEST(Comparison, ReadsAgainWhatMayHaveBeenWrittenUnseen)
{
    struct {
        Timestamp stamp;
        bool isUnsettled;
    } const rows[] = {
        {{998, 500}, false}, {{998, 501}, true}, {{998, 499}, false}, {{999, 0}, true},
        {{1000, 500}, true}, {{5000, 0}, true},  {{-5, 0}, false},    {{998, 0}, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(isUnsettled(row.stamp, kRead), row.isUnsettled) << row.stamp.seconds;
        const auto expected = row.isUnsettled ? read(ChangeReason::unsettled) : kSame;
        auto known = storedFile();
        known.item.modified = row.stamp;
        EXPECT_EQ(after(known, [](ItemRecord&) {}), expected);
        known = storedFile();
        known.item.changed = row.stamp;
        EXPECT_EQ(after(known, [](ItemRecord&) {}), expected);
        EXPECT_EQ(after(known, [](ItemRecord&) {}, {.ignoresChangeTime = true}), kSame);
    }
}

TEST(Comparison, ReadsAgainWhenNobodyKnowsWhenItWasRead)
{
    auto known = storedFile();
    known.readBegan = {};
    EXPECT_EQ(after(known, [](ItemRecord&) {}), read(ChangeReason::unsettled));
}

/// A file system that stamps whole seconds (or every second one): a rewrite in the second of the
/// reading shows no other stamp, and must be met all the same.
TEST(Comparison, MeetsARewriteOfTheSameSizeOnFileSystemsWithCoarseStamps)
{
    for (const std::int64_t step : {1, 2}) {
        for (std::int64_t written = 990; written <= 1010; ++written) {
            const std::int64_t stamp = written - written % step;
            for (std::int64_t readBegan = written; readBegan <= written + 5; ++readBegan) {
                for (std::int64_t rewritten = readBegan; rewritten <= readBegan + 5; ++rewritten) {
                    auto known = storedFile();
                    known.item.modified = known.item.changed = {stamp, 0};
                    known.readBegan = {readBegan, 0};
                    const auto again = rewritten - rewritten % step;
                    const auto decision = after(known, [again](ItemRecord& now) {
                        now.modified = now.changed = {again, 0};
                    });
                    ASSERT_EQ(decision.verdict, Verdict::read)
                        << step << " " << written << " " << readBegan << " " << rewritten;
                }
            }
        }
    }
}

} // namespace
} // namespace stowline::backup
