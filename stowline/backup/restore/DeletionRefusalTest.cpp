// What a run can say of what it did not hold, by its record alone.
#include "stowline/backup/restore/DeletionRefusal.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace stowline::backup {
namespace {

class DeletionRefusal : public testing::Test {
protected:
    DeletionRefusal()
    {
        head.run = 7;
        head.state = RecordState::finished;
    }

    void hold(const std::string& path, ItemKind kind = ItemKind::folder, bool isStale = false)
    {
        StoredItem stored;
        stored.item.path = path;
        stored.item.kind = kind;
        stored.isStale = isStale;
        items.put(stored, 1);
    }

    void note(const std::string& path, PlaceNote::Kind kind,
              const std::vector<std::string>& rules = {})
    {
        items.putNote({path, kind, packedRules(rules)}, 1);
    }

    [[nodiscard]] std::string refusal(const std::string& path)
    {
        Absences absences(items);
        return refusalToDelete(head, items, absences, Selection(path, patterns, all), patterns,
                               "/nowhere")
            .value_or("");
    }

    RecordHead head;
    ItemIndex items = ItemIndex::temporary();
    TreeRules patterns;
    const std::set<std::string> all;
};

constexpr const char* kUnsure =
    ", so it cannot tell what is to be deleted. Please restore without --delete.";

TEST_F(DeletionRefusal, IsNoneForWhatWasLookedAtAsAWhole)
{
    hold("/c");
    hold("/c/sub");
    hold("/c/file", ItemKind::file);
    note("/c", PlaceNote::Kind::walked, {"exclude *.o", "skip-hidden", "include *.txt"});
    for (const char* path : {"/c", "/c/sub", "/c/file", "/missing"})
        EXPECT_EQ(refusal(path), "") << path;
}

TEST_F(DeletionRefusal, IsOneForRunsThatDidNotEnd)
{
    hold("/c");
    note("/c", PlaceNote::Kind::walked);
    head.state = RecordState::unfinished;
    EXPECT_EQ(refusal("/c"), std::string("Run 7 did not come to its end") + kUnsure);
}

TEST_F(DeletionRefusal, IsOneForRecordsWithoutNotes)
{
    hold("/c");
    EXPECT_EQ(refusal("/c"), std::string("Run 7 does not say which folders it looked at and what "
                                         "its rules left out, as records of earlier versions do "
                                         "not") +
                                 kUnsure);
}

TEST_F(DeletionRefusal, IsOneForRulesThatCannotBeFollowed)
{
    hold("/c");
    hold("/c/sub");
    hold("/d");
    note("/c", PlaceNote::Kind::walked);
    note("/c/sub", PlaceNote::Kind::walked, {"too long to be noted"});
    note("/d", PlaceNote::Kind::walked, {"exclude *.o", "larger-than 5M"});
    EXPECT_EQ(refusal("/c"),
              std::string("The rules of run 7 in /c/sub are too long to be in its record") +
                  kUnsure);
    EXPECT_EQ(refusal("/d"), std::string("Run 7 followed the rule \"larger-than 5M\" in /d, which "
                                         "this program does not know") +
                                 kUnsure);
}

TEST_F(DeletionRefusal, IsOneForFoldersThatWereNotLookedAtAsAWhole)
{
    hold("/c");
    hold("/c/sub");
    hold("/d");
    hold("/d/x");
    note("/", PlaceNote::Kind::walked);
    note("/c", PlaceNote::Kind::leftOut);
    note("/d", PlaceNote::Kind::missed);
    EXPECT_EQ(refusal("/c/sub"),
              std::string("A rule leaves /c/sub out of run 7 but for what was named in it") +
                  kUnsure);
    EXPECT_EQ(refusal("/d"), std::string("Run 7 was not told to back up /d, or could not look at "
                                         "all of it") +
                                 kUnsure);
    note("/d/x", PlaceNote::Kind::walked);
    EXPECT_EQ(refusal("/d"), "") << "there is a part in which it can tell";
}

TEST_F(DeletionRefusal, IsOneForFoldersThatTheRunWasNotToldToBackUp)
{
    for (const char* path : {"/c", "/c/d", "/e"})
        hold(path);
    StoredItem link;
    link.item.path = "/way";
    link.item.kind = ItemKind::link;
    link.item.linkTarget = "/e";
    items.put(link, 1);
    note("/c", PlaceNote::Kind::walked);
    note("/c/d", PlaceNote::Kind::walked);
    note("/e", PlaceNote::Kind::walked);
    head.description.namedPaths = {"/c/d/", "/way"};
    EXPECT_EQ(foldersWalkedBy(head, items), (std::set<std::string>{"/c/d", "/e"}));
    const auto of = [this](const std::string& path) {
        Absences absences(items, foldersWalkedBy(head, items));
        return refusalToDelete(head, items, absences, Selection(path, patterns, all), patterns,
                               "/nowhere");
    };
    EXPECT_FALSE(of("/c/d"));
    EXPECT_FALSE(of("/e"));
    EXPECT_FALSE(of("/c")) << "there is a part in which it can tell";
    Absences absences(items, foldersWalkedBy(head, items));
    EXPECT_EQ(absences.at("/c").absence, Absence::notLookedAt);
    EXPECT_EQ(absences.at("/c/d").absence, Absence::wasNotThere);
    head.description.namedPaths = {"/e"};
    EXPECT_TRUE(of("/c"));
    EXPECT_TRUE(of("/c/d"));
}

TEST_F(DeletionRefusal, IsOneForFoldersThatOnlyAnEarlierRunSaw)
{
    hold("/c");
    for (const char* name : {"/c/1", "/c/2", "/c/3", "/c/4"}) {
        hold(name, ItemKind::folder, true);
        hold(name + std::string("/in it"), ItemKind::folder, true);
    }
    hold("/c/file", ItemKind::file, true);
    note("/c", PlaceNote::Kind::walked);
    EXPECT_EQ(refusal("/c"), "Run 7 holds /c/1, /c/2, /c/3 and 1 other only as an earlier run saw "
                             "them, so it cannot tell what is to be deleted there. Please leave "
                             "them out with --exclude, or restore without --delete.");
    ASSERT_TRUE(patterns.exclude("/[1-4]"));
    EXPECT_EQ(refusal("/c"), "");
}

/// What it means that an item of a name is not held in a folder that is.
class Absent : public DeletionRefusal {
protected:
    [[nodiscard]] Absence of(const std::string& path, bool isFolder = false)
    {
        Absences absences(items);
        const auto folder = absences.at(std::string(parentOf(path)));
        return absences.in(folder, path, {.isFolder = isFolder, .note = items.noteAt(path)})
            .absence;
    }
};

TEST_F(Absent, NothingIsKnownWithoutANote)
{
    hold("/c");
    EXPECT_EQ(of("/c/x"), Absence::notLookedAt);
    note("/c", PlaceNote::Kind::walked);
    EXPECT_EQ(of("/c/x"), Absence::wasNotThere);
    EXPECT_EQ(of("/x"), Absence::notLookedAt);
}

TEST_F(Absent, TheNearestNoteCounts)
{
    for (const char* path : {"/c", "/c/out", "/c/out/in", "/c/out/in/missed"})
        hold(path);
    note("/c", PlaceNote::Kind::walked);
    note("/c/out", PlaceNote::Kind::leftOut);
    note("/c/out/in", PlaceNote::Kind::walked, {"exclude /x"});
    note("/c/out/in/missed", PlaceNote::Kind::missed);
    EXPECT_EQ(of("/c/out/x"), Absence::leftOut);
    EXPECT_EQ(of("/c/out/in/x"), Absence::leftOut);
    EXPECT_EQ(of("/c/out/in/y"), Absence::wasNotThere);
    EXPECT_EQ(of("/c/out/in/missed/x"), Absence::notLookedAt);
    note("/c/new", PlaceNote::Kind::missed);
    EXPECT_EQ(of("/c/new"), Absence::notLookedAt);
}

TEST_F(Absent, WhatRulesLeaveOutAboveIsLeftOutBelow)
{
    for (const char* path : {"/c", "/c/build", "/c/build/keep", "/c/.git", "/c/.git/x"})
        hold(path); // led to what a later run was told to back up
    note("/c", PlaceNote::Kind::walked, {"exclude build", "skip-hidden"});
    EXPECT_EQ(of("/c/build/keep/x"), Absence::leftOut);
    EXPECT_EQ(of("/c/.git/x/y"), Absence::leftOut);
    EXPECT_EQ(of("/c/builder"), Absence::wasNotThere);
}

TEST_F(Absent, ADiskWasLeftOutByRunsThatStayOnTheirFileSystem)
{
    hold("/c");
    hold("/c/disk");
    auto disk = items.find("/c/disk").value();
    disk.item.isMountPoint = true;
    items.put(disk, 1);
    note("/c", PlaceNote::Kind::walked, {"one-file-system"});
    EXPECT_EQ(of("/c/disk/x"), Absence::leftOut);
    note("/c", PlaceNote::Kind::walked);
    EXPECT_EQ(of("/c/disk/x"), Absence::wasNotThere);
}

TEST_F(Absent, NothingIsKnownBelowWhatOnlyAnEarlierRunSaw)
{
    hold("/c");
    hold("/c/sub", ItemKind::folder, true);
    note("/c", PlaceNote::Kind::walked);
    note("/c/sub", PlaceNote::Kind::walked);
    EXPECT_EQ(of("/c/sub/x"), Absence::notLookedAt);
}

TEST_F(Absent, OnlyWhatMatchesAnIncludePatternIsKnownToHaveBeenAway)
{
    hold("/c");
    hold("/c/all");
    hold("/c/sub");
    note("/c", PlaceNote::Kind::walked, {"include *.txt", "include /all"});
    EXPECT_EQ(of("/c/sub/x.c"), Absence::leftOut);
    EXPECT_EQ(of("/c/sub/x.txt"), Absence::wasNotThere);
    EXPECT_EQ(of("/c/all/x.c"), Absence::wasNotThere);
    EXPECT_EQ(of("/c/sub/folder", true), Absence::wasNotThere);
}

TEST_F(Absent, TheLastPatternOfAFileThatMatchesDecides)
{
    hold("/c");
    note("/c", PlaceNote::Kind::walked, {"exclude *.o", "exclude-from *.log\n!keep.*\n"});
    EXPECT_EQ(of("/c/x.log"), Absence::leftOut);
    EXPECT_EQ(of("/c/x.o"), Absence::leftOut);
    EXPECT_EQ(of("/c/keep.o"), Absence::wasNotThere);
    EXPECT_EQ(of("/c/keep.log"), Absence::wasNotThere);
}

} // namespace
} // namespace stowline::backup
