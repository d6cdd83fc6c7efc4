// What verifying tells of a run whose record lacks content, or holds one that cannot be read.
#include "stowline/backup/RunHistory.h"
#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/VerifyRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace stowline::backup {
namespace {

/// Stores a tree whose record is not what was stored.
class Altered : public Stored {
public:
    explicit Altered(std::function<void(StoredItem&)> alter) : alter_(std::move(alter)) {}

    void found(FoundItem found) override
    {
        const std::string itemPath = found.item.path;
        Stored::found(std::move(found));
        auto item = index.find(itemPath).value();
        alter_(item);
        index.put(item, 1);
    }

private:
    std::function<void(StoredItem&)> alter_;
};

struct Findings : VerifyObserver {
    void found(const VerifyFinding& finding) override
    {
        sentences[finding.path.substr(finding.path.rfind('/') + 1)] = finding.sentence;
    }
    std::map<std::string, std::string> sentences; ///< by name
};

/// The findings of reading all, which are those of asking only.
VerifySummary verified(Stored& stored, Findings& findings)
{
    Findings asked;
    const auto word = runVerify({.choice = stored.choice}, asked, stored.stop);
    const auto read =
        runVerify({.choice = stored.choice, .fractionRead = 1}, findings, stored.stop);
    EXPECT_EQ(asked.sentences, findings.sentences);
    EXPECT_EQ(word.end, read.end);
    EXPECT_EQ(word.missing, read.missing);
    EXPECT_EQ(word.unknown, read.unknown);
    EXPECT_EQ(word.checked, read.checked);
    return read;
}

TEST(VerifyLack, CallsAFileMissingOfWhichTheRunHoldsNothing)
{
    Altered stored([](StoredItem& item) {
        if (nameOf(item.item.path) == "b")
            item.content.reset();
    });
    for (const char* name : {"a", "b", "d"})
        stored.machine.write("tree/" + std::string(name), name);
    stored.machine.write("tree/empty", "");
    std::filesystem::create_hard_link(stored.folder() / "b", stored.folder() / "c");
    std::filesystem::create_hard_link(stored.folder() / "d", stored.folder() / "e");
    std::filesystem::create_symlink("a", stored.folder() / "link");
    ASSERT_EQ(stored.run(), 1U);
    Findings findings;
    const auto summary = verified(stored, findings);
    EXPECT_EQ(summary.end, ReadEnd::badContent);
    EXPECT_EQ(summary.missing, 2U);
    EXPECT_EQ(summary.checked, 5U); // with its two further names no file is counted twice
    EXPECT_EQ(summary.read, 3U);
    ASSERT_EQ(findings.sentences.size(), 2U);
    for (const char* name : {"b", "c"})
        EXPECT_TRUE(findings.sentences[name].ends_with("no content is stored (of run 1).") ||
                    findings.sentences[name].ends_with("no content of it is stored (of run 1)."))
            << findings.sentences[name];
}

TEST(VerifyLack, DoesNotPassContentOfAKindThatItCannotRead)
{
    Altered stored([](StoredItem& item) {
        if (nameOf(item.item.path) == "b")
            item.content->kind = "sealed";
    });
    stored.machine.write("tree/a", "one");
    stored.machine.write("tree/b", "two");
    ASSERT_EQ(stored.run(), 1U);
    Findings findings;
    const auto summary = verified(stored, findings);
    EXPECT_EQ(summary.end, ReadEnd::someFailed);
    EXPECT_EQ(summary.unknown, 1U);
    EXPECT_EQ(summary.checked, 1U);
    EXPECT_NE(findings.sentences["b"].find("the kind \"sealed\", which this program cannot read"),
              std::string::npos)
        << findings.sentences["b"];
}

TEST(VerifySample, ReadsOneFileAtLeast)
{
    Stored stored;
    for (const char* name : {"a", "b", "c"})
        stored.machine.write("tree/" + std::string(name), name);
    ASSERT_EQ(stored.run(), 1U);
    Findings findings;
    const auto summary =
        runVerify({.choice = stored.choice, .fractionRead = 1e-9}, findings, stored.stop);
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence;
    EXPECT_EQ(summary.checked, 3U);
    EXPECT_EQ(summary.read, 1U);
    const auto none = runVerify({.choice = stored.choice}, findings, stored.stop);
    EXPECT_EQ(none.checked, 3U);
    EXPECT_EQ(none.read, 0U);
}

TEST(WhatIsRead, TellsOfFilesThatChangedWhileTheyWereStored)
{
    Altered stored([](StoredItem& item) { item.changedWhileRead = nameOf(item.item.path) == "b"; });
    stored.machine.write("tree/a", "one");
    stored.machine.write("tree/b", "two");
    ASSERT_EQ(stored.run(), 1U);
    const std::string told = "1 file of run 1 changed while it was read: what is stored of it "
                             "may mix several states of it: " +
                             (stored.folder() / "b").string() + ".";
    const auto isToldIn = [&told](const RunOrigin& origin) {
        return std::ranges::count(origin.notes, told) == 1;
    };
    Findings findings;
    EXPECT_TRUE(isToldIn(verified(stored, findings).origin));
    EXPECT_TRUE(isToldIn(stored.restore().origin));
    const auto listed = forEachItemOfRun(
        stored.choice, "/", [](const StoredItem&, const ItemSight&) { return true; }, stored.stop);
    EXPECT_TRUE(isToldIn(listed.origin));
    const auto read = readStoredFile(
        stored.choice, (stored.folder() / "b").string(), [](std::string_view) { return true; },
        stored.stop);
    EXPECT_EQ(read.end, ReadEnd::done);
    EXPECT_TRUE(isToldIn(read.origin));
}

} // namespace
} // namespace stowline::backup
