// From when the items of a run are that was told to back up other paths than earlier ones.
#include "stowline/backup/restore/Sights.h"

#include "stowline/backup/record/RecordFault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace stowline::backup {
namespace {

class SightsTest : public testing::Test {
protected:
    SightsTest()
    {
        for (const char* folder : {"/", "/a", "/b", "/b/c", "/b/d"})
            hold(folder, ItemKind::folder);
        for (const char* file : {"/a/x", "/b/c/x", "/b/d/x", "/b/y"})
            hold(file, ItemKind::file);
    }

    void hold(const std::string& path, ItemKind kind)
    {
        items_.put({.item = {.path = path, .kind = kind}}, 1);
    }

    /// A run over these paths, of which folders were looked at to their end.
    void run(const std::vector<std::string>& paths, RecordState state = RecordState::finished)
    {
        const std::uint64_t number = heads_.empty() ? 1 : heads_.back().run + 1;
        RecordHead head{.run = number, .state = state};
        head.description.namedPaths = paths;
        head.description.begun = {static_cast<std::int64_t>(1000 * number), 0};
        heads_.push_back(head);
        for (const std::string& path : paths) {
            const auto stored = items_.find(path);
            if (stored && stored->item.kind == ItemKind::folder)
                items_.putNote({path, PlaceNote::Kind::walked, ""}, number);
        }
    }

    void forget(std::uint64_t run)
    {
        std::erase_if(heads_, [run](const RecordHead& head) { return head.run == run; });
    }

    /// Of the newest run.
    [[nodiscard]] Sights sights()
    {
        asked_.clear();
        std::vector<ListedRun> runs;
        for (const RecordHead& head : heads_)
            runs.push_back({.run = head.run, .state = head.state});
        return {heads_.back(), items_, runs, [this](std::uint64_t run) {
                    asked_.insert(run);
                    if (damaged_ == run)
                        throw RecordFault(RecordFault::Kind::damaged, "torn");
                    return *std::ranges::find(heads_, run, &RecordHead::run);
                }};
    }

    [[nodiscard]] static std::string join(const std::vector<std::string>& texts)
    {
        std::string all;
        for (const std::string& text : texts)
            all += text + "\n";
        return all;
    }

    ItemIndex items_ = ItemIndex::temporary();
    std::vector<RecordHead> heads_;
    std::set<std::uint64_t> asked_;
    std::uint64_t damaged_ = 0;
};

TEST_F(SightsTest, OfWhatARunWasToldToBackUpAreItsOwn)
{
    run({"/"});
    run({"/a", "/b"});
    const Sights sights = this->sights();
    for (const char* path : {"/", "/a", "/a/x", "/b", "/b/c/x", "/b/new"}) {
        EXPECT_EQ(sights.of(path).run, 2U) << path;
        EXPECT_FALSE(sights.of(path).isEarlier) << path;
    }
    EXPECT_TRUE(sights.sentences({"/"}).empty());
    EXPECT_TRUE(asked_.empty()) << "nothing is left to be explained";
}

TEST_F(SightsTest, OfOtherPathsAreThoseOfTheNewestRunThatWasTold)
{
    run({"/b"});
    run({"/b/c", "/b/y"});
    run({"/a"});
    const Sights sights = this->sights();
    EXPECT_EQ(sights.of("/a/x").run, 3U);
    EXPECT_EQ(sights.of("/b/d/x"), (ItemSight{1, {1000, 0}, true, true}));
    EXPECT_EQ(sights.of("/b/c/x"), (ItemSight{2, {2000, 0}, true, true}));
    EXPECT_EQ(sights.of("/b/y").run, 2U);
    EXPECT_EQ(sights.of("/b").run, 2U) << "it was on the way";
    EXPECT_EQ(sights.of("/").run, 3U);
    const std::string text = join(sights.sentences({"/"}));
    EXPECT_NE(text.find("Run 3 was not told to back up /b/c, and holds it as run 2 of 1970-01-01"),
              std::string::npos)
        << text;
    EXPECT_NE(join(sights.sentences({"/b/c/x"})).find("run 2 of"), std::string::npos);
    EXPECT_TRUE(sights.sentences({"/a"}).empty());
}

TEST_F(SightsTest, AreUnsureWhereARunInBetweenIsForgottenCutOffOrDamaged)
{
    run({"/b"});
    run({"/b"});
    run({"/a"});
    EXPECT_TRUE(sights().of("/b/y").isSure);
    damaged_ = 2;
    EXPECT_EQ(sights().of("/b/y"), (ItemSight{1, {1000, 0}, false, true}));
    damaged_ = 0;
    heads_[1].state = RecordState::unfinished;
    EXPECT_EQ(sights().of("/b/y"), (ItemSight{1, {1000, 0}, false, true}));
    forget(2);
    EXPECT_EQ(sights().of("/b/y"), (ItemSight{1, {1000, 0}, false, true}));
    const std::string text = join(sights().sentences({"/b"}));
    EXPECT_NE(text.find("saw it, or one in between that was cut off or is forgotten."),
              std::string::npos)
        << text;
    forget(1);
    EXPECT_EQ(sights().of("/b/y").run, 0U);
    EXPECT_NE(join(sights().sentences({"/b"})).find("holds it as an earlier run saw it."),
              std::string::npos);
}

TEST_F(SightsTest, FollowLinksThatWereNamed)
{
    items_.put({.item = {.path = "/link", .kind = ItemKind::link, .linkTarget = "b"}}, 1);
    run({"/b"});
    run({"/link/c"});
    const Sights sights = this->sights();
    EXPECT_EQ(sights.of("/b/c/x").run, 2U);
    EXPECT_EQ(sights.of("/link").run, 2U);
    EXPECT_EQ(sights.of("/b/d/x").run, 1U);
}

TEST_F(SightsTest, OfAnItemThatCouldNotBeLookedAtAreOfAnUnknownRun)
{
    run({"/"});
    const Sights sights = this->sights();
    StoredItem stored = *items_.find("/a/x");
    EXPECT_FALSE(sights.of(stored).isEarlier);
    stored.isStale = true;
    EXPECT_EQ(sights.of(stored), ItemSight());
}

} // namespace
} // namespace stowline::backup
