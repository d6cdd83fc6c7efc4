// What the page tells of an account, and what it does not claim to know.
#include "devserver/page/HeldServiceTest.h"
#include "devserver/page/OverviewHtml.h"

#include <thread>

namespace stowline::devserver {
namespace {

using namespace std::chrono_literals;

class OverviewTest : public HeldService {
protected:
    std::string html(const std::vector<std::string>& users, bool isOfAll = false)
    {
        Overview overview = makeOverview({storage_, journal_, deletions_, heads_}, users);
        overview.isOfAll = isOfAll;
        return overviewHtml(overview);
    }
    static std::vector<std::string> failures(const AccountOverview& account)
    {
        std::vector<std::string> told;
        for (const ShownFailure& failure : account.failures)
            told.push_back(failure.systemName + ": " + failure.what);
        return told;
    }
};

TEST_F(OverviewTest, TheLastGoodRunIsTheLastWhoseRecordTellsOfNothingFailed)
{
    putRun("ann", "iMac", "00000001-finished", "\"items\":5,\"new_bytes\":9");
    letPass(24h);
    putRun("ann", "iMac", "00000002-finished", "\"failed\":1");
    putRun("ann", "iMac", "00000003-begun", "\"items\":0");
    const AccountOverview account = of("ann");
    ASSERT_EQ(account.chains.size(), 1U);
    const ShownChain& chain = account.chains[0];
    EXPECT_EQ(chain.systemName, "iMac");
    EXPECT_EQ(chain.last->record.run, "00000003");
    EXPECT_EQ(chain.last->record.state, "begun");
    ASSERT_TRUE(chain.lastGood);
    EXPECT_EQ(chain.lastGood->record.run, "00000001");
    EXPECT_EQ(chain.lastGood->record.storedAt, "2026-01-10 00:00:00"); // by the service's clock
    EXPECT_NE(html({"ann"}).find("<small>1 day ago</small>"), std::string::npos);
}

TEST_F(OverviewTest, ARunThatCannotBeReadIsNotTakenForAGoodOne)
{
    put("ann", "iMac", "/=stowline=/records/m.root.default/00000001-finished", "no record");
    const AccountOverview account = of("ann");
    EXPECT_FALSE(account.chains.at(0).lastGood);
    EXPECT_EQ(failures(account).at(0), "iMac: Run 1 left a record that cannot be read: it is "
                                       "damaged, or of a later version.");
    EXPECT_NE(html({"ann"}).find("none of the last 1"), std::string::npos);
    EXPECT_NE(html({"ann"}).find("its record cannot be read"), std::string::npos);
}

TEST_F(OverviewTest, AMachineWithoutARunIsShownToo)
{
    put("ann", "iMac", "/a", "x");
    const AccountOverview account = of("ann");
    ASSERT_EQ(account.chains.size(), 1U);
    EXPECT_FALSE(account.chains[0].last);
    EXPECT_NE(html({"ann"}).find("no run has left a record"), std::string::npos);
}

TEST_F(OverviewTest, EachChainOfAMachineIsTold)
{
    putRun("ann", "iMac", "00000001-finished", "\"items\":5", "m.ann.default");
    putRun("ann", "iMac", "00000001-finished", "\"failed\":5", "m.root.system");
    const AccountOverview account = of("ann");
    ASSERT_EQ(account.chains.size(), 2U);
    EXPECT_TRUE(account.chains[0].lastGood);
    EXPECT_FALSE(account.chains[1].lastGood);
    EXPECT_EQ(account.chains[1].chain, "m.root.system");
}

TEST_F(OverviewTest, ARunIsOneHoweverManyRecordsItLeft)
{
    for (const char* name : {"00000001-begun", "00000001-unfinished-01", "00000001-finished",
                             "00000002-begun", "00000002-unfinished-01", "00000003-begun"})
        putRun("ann", "iMac", name, "\"items\":1");
    const AccountOverview account = of("ann");
    ASSERT_EQ(account.runs.size(), 3U);
    EXPECT_EQ(account.runs[2].record.state, "finished");
    EXPECT_EQ(account.runs[1].record.state, "unfinished-01");
    // The last one may still be running; the one before it is not.
    EXPECT_EQ(failures(account),
              (std::vector<std::string>{"iMac: Run 2 began and never finished."}));
    letPass(24h);
    EXPECT_EQ(failures(of("ann")).at(0),
              "iMac: Run 3 began and has not been heard of for a day or longer.");
}

TEST_F(OverviewTest, ARunThatIsForgottenIsNotShown)
{
    putRun("ann", "iMac", "00000001-finished", "\"items\":1");
    putRun("ann", "iMac", "00000002-finished", "\"items\":1");
    putRun("ann", "iMac", "00000001-forgotten", "\"items\":1");
    const AccountOverview account = of("ann");
    ASSERT_EQ(account.runs.size(), 1U);
    EXPECT_EQ(account.runs[0].record.run, "00000002");
    EXPECT_TRUE(account.failures.empty());
}

TEST_F(OverviewTest, FailuresComeFromRecordsReportsEventsAndWhatIsDamaged)
{
    putRun("ann", "iMac", "00000001-finished", "\"failed\":1200");
    journal_.addReport(
        {{"userName", "ann"}, {"machineName", "PC"}, {"numberOfFilesNotBackedUp", "1"}});
    journal_.addReport(
        {{"userName", "ann"}, {"machineName", "fine"}, {"numberOfFilesNotBackedUp", "0"}});
    journal_.addEvent({{"userName", "ann"},
                       {"systemName", "Mac"},
                       {"eventType", "BackupEndedWithErrors"},
                       {"errorFilesCount", "0"}});
    journal_.addEvent({{"userName", "ann"}, {"systemName", "fine"}, {"eventType", "BackupEnded"}});
    put("ann", "NAS", "/a", "x");
    execute("UPDATE versions SET is_whole = 0 WHERE id = (SELECT max(id) FROM versions)");
    std::vector<std::string> told = failures(of("ann"));
    EXPECT_EQ(told.at(0), "NAS: 1 stored version is known to be damaged.");
    std::sort(told.begin(), told.end());
    EXPECT_EQ(told,
              (std::vector<std::string>{"Mac: Event BackupEndedWithErrors, failures counted: 0.",
                                        "NAS: 1 stored version is known to be damaged.",
                                        "PC: A summary counts 1 failure.",
                                        "iMac: Run 1 could not back up 1,200 items."}));
}

/// The event of a self-test as a machine sends it.
Dictionary selfTestEvent(const std::string& system, const std::string& type,
                         const std::string& proven = "30", const std::string& lost = "0")
{
    return {{"userName", "ann"},         {"systemName", system},
            {"eventType", type},         {"errorFilesCount", lost},
            {"totalFilesCount", "1200"}, {"unchangedFilesCount", proven}};
}

TEST_F(OverviewTest, TheLastProofIsWhatTheMachineToldOfThatProfile)
{
    for (const char* chain : {"m.root.default", "m.root.docs", "m.root.=b64=w7w"})
        putRun("ann", "iMac", "00000001-finished", "\"items\":1", chain);
    putRun("ann", "PC", "00000001-finished", "\"items\":1");
    putRun("bob", "iMac", "00000001-finished", "\"items\":1");
    put("ann", "idle", "/a", "x");
    const auto proofOf = [this](const std::string& system, const std::string& chain) {
        for (const ShownChain& shown : of("ann").chains)
            if (shown.systemName == system && shown.chain == chain)
                return shown.proof ? shown.proof->proven : 0;
        return std::uint64_t(99);
    };
    const auto count = [](const std::string& text, const std::string& what) {
        std::size_t found = 0;
        for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(count(html({"ann"}), ">not told<"), 4U) << "and nothing of what has no run";
    journal_.addEvent(selfTestEvent("iMac", "SelfTestEnded", "1"));
    journal_.addEvent(selfTestEvent("iMac", "SelfTestEnded", "7"));
    journal_.addEvent(selfTestEvent("iMac (profile docs)", "SelfTestEnded", "8"));
    journal_.addEvent(selfTestEvent("iMac (profile \xc3\xbc)", "SelfTestEnded", "9"));
    for (int i = 0; i < 60; ++i) // however many others come
        journal_.addEvent(
            {{"userName", "ann"}, {"systemName", "PC"}, {"eventType", "BackupEnded"}});
    EXPECT_EQ(proofOf("iMac", "m.root.default"), 7U);
    EXPECT_EQ(proofOf("iMac", "m.root.docs"), 8U);
    EXPECT_EQ(proofOf("iMac", "m.root.=b64=w7w"), 9U);
    EXPECT_EQ(proofOf("PC", "m.root.default"), 0U);
    EXPECT_FALSE(of("bob").chains.at(0).proof);
    const std::string page = html({"ann"});
    EXPECT_EQ(count(page, ">not told<"), 1U);
    EXPECT_NE(page.find("data-label=\"Last proof (UTC)\"><div><time datetime=\""),
              std::string::npos)
        << page;
    EXPECT_NE(page.find("7 of 1,200 contents proven within 30 days then"), std::string::npos);
    EXPECT_EQ(page.find("another one of that name"), std::string::npos);
    // It is kept when the service starts again.
    Journal again(folder_.path());
    EXPECT_EQ(again.selfTests("ann").size(), 3U);
}

TEST_F(OverviewTest, ASelfTestThatWasNotWellIsNoProofAndSaid)
{
    putRun("ann", "iMac", "00000001-finished", "\"items\":1");
    journal_.addEvent(selfTestEvent("iMac", "SelfTestEndedWithErrors", "3", "2"));
    ShownChain chain = of("ann").chains.at(0);
    EXPECT_FALSE(chain.proof);
    EXPECT_EQ(chain.failed->lost, 2U);
    EXPECT_NE(html({"ann"}).find("<strong class=\"bad\">not well: 2 lost or different</strong>"),
              std::string::npos);
    EXPECT_EQ(html({"ann"}).find("last well"), std::string::npos);
    journal_.addEvent(selfTestEvent("iMac", "SelfTestEnded"));
    chain = of("ann").chains.at(0);
    EXPECT_TRUE(chain.proof);
    EXPECT_FALSE(chain.failed) << "it is well since";
    journal_.addEvent(selfTestEvent("iMac", "SelfTestEndedWithErrors", "3", "0"));
    EXPECT_NE(html({"ann"}).find("<strong class=\"bad\">not well</strong>"), std::string::npos);
    EXPECT_NE(html({"ann"}).find("last well: <time"), std::string::npos);
    journal_.addEvent(selfTestEvent("iMac", "SelfTestOfLaterDays"));
    EXPECT_TRUE(of("ann").chains.at(0).failed) << "what is not known proves nothing";
}

TEST_F(OverviewTest, AProofThatMayBeAnotherBackupsIsToldSo)
{
    putRun("ann", "iMac", "00000001-finished", "\"items\":1", "m.root.default");
    putRun("ann", "iMac", "00000001-finished", "\"items\":1", "m.ann.default");
    journal_.addEvent(selfTestEvent("iMac", "SelfTestEnded"));
    const std::string words = "of this backup or another one of that name and profile";
    const std::string page = html({"ann"});
    ASSERT_NE(page.find(words), std::string::npos);
    EXPECT_NE(page.find(words, page.find(words) + 1), std::string::npos) << "of both";
}

TEST_F(OverviewTest, ASuspensionOfForgettingIsAFailure)
{
    journal_.addEvent({{"userName", "ann"},
                       {"systemName", "iMac"},
                       {"eventType", "ForgettingSuspended"},
                       {"errorFilesCount", "0"}});
    EXPECT_EQ(failures(of("ann")).at(0), "iMac: Event ForgettingSuspended, failures counted: 0.");
}

TEST_F(OverviewTest, WhatTheServiceCannotKnowIsSaid)
{
    const std::string page = html({"ann"});
    EXPECT_NE(page.find("A proof is known here only where the machine told it"), std::string::npos);
    EXPECT_NE(page.find("It cannot know of a machine that is switched off"), std::string::npos);
    EXPECT_NE(page.find("the service cannot tell which"), std::string::npos);
}

TEST_F(OverviewTest, DaysLeftAreWholeDaysThatTheFirstHasAtLeastBegun)
{
    ASSERT_TRUE(storage_.deleteVersion("ann", put("ann", "iMac", "/a", "x")));
    EXPECT_NE(html({"ann"}).find("<div>7 days</div>"), std::string::npos);
    for (int i = 0; i < 6 * 24 + 1; ++i) {
        letPass(1h);
        (void)storage_.dropDeleted();
    }
    EXPECT_NE(html({"ann"}).find("<div>1 day</div>"), std::string::npos);
}

TEST_F(OverviewTest, TheSizeEndsWithWhatIsHeldNow)
{
    put("ann", "iMac", "/a", std::string(2048, 'x'));
    storage_.noteSpace();
    letPass(90s);
    put("ann", "iMac", "/b", std::string(1024, 'x'));
    const auto notes = of("ann").notes;
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[1].bytes, 3072U);
    const std::string before = html({"ann"});
    EXPECT_NE(before.find("From 2.0 KB at 2026-01-10 00:00:00 to 3.0 KB now."), std::string::npos);
    letPass(20s);
    EXPECT_EQ(html({"ann"}), before); // nothing happened within the minute
    now_.clock -= 24h;                // a clock that was set back shows nothing of later
    EXPECT_EQ(of("ann").notes.size(), 1U);
}

TEST_F(OverviewTest, NamesOfAnyKindAreEscapedWrappedAndKeptApart)
{
    const std::string odd = "<script>alert(1)</script>\xd7\x91" + std::string(4000, 'n');
    const std::string shown = "&lt;script&gt;alert(1)&lt;/script&gt;\xd7\x91";
    put("ann", odd, "/d/a", "x");
    putRun("ann", odd, "00000001-finished", "\"failed\":1", "m.=b64=PGI-.x");
    (void)storage_.readPart("ann", 1, 0, 1);
    journal_.addReport({{"userName", "ann"}, {"machineName", odd}, {"backupDate", "<i>"}});
    journal_.addEvent({{"userName", "ann"}, {"systemName", odd}, {"eventType", "\"'&\x1b[31m"}});
    ASSERT_TRUE(deletions_.begin("ann", odd, "/d"));
    while (deletions_.all().at(0).deleted == 0) // by another thread
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::string page = html({"ann"}, true);
    EXPECT_EQ(page.find("<script"), std::string::npos);
    EXPECT_EQ(page.find("<i>"), std::string::npos);
    EXPECT_EQ(page.find('\x1b'), std::string::npos);
    EXPECT_NE(page.find("&quot;&#39;&amp;?[31m"), std::string::npos);
    EXPECT_NE(page.find("<bdi>&lt;b&gt;, profile x</bdi>"), std::string::npos) << page;
    // Wherever a cell shows the name, it is kept apart; else it stands in a key alone.
    std::size_t names = 0;
    for (auto at = page.find(shown); at != std::string::npos; at = page.find(shown, at + 1)) {
        const bool isApart = page.substr(at - 5, 5) == "<bdi>";
        const auto key = page.rfind("data-key=\"", at);
        const bool isInKey = key != std::string::npos && page.find('"', key + 10) > at;
        EXPECT_TRUE(isApart || isInKey) << page.substr(at - 40, 60);
        names += isApart ? 1 : 0;
    }
    // Machines, space, failures, runs, fetched, deleted, deletion, report, event.
    EXPECT_EQ(names, 9U);
}

TEST_F(OverviewTest, OfAnotherAccountNothingIsTold)
{
    for (const char* user : {"ann", "bob"}) {
        const std::string mark = std::string("mark-of-") + user;
        const std::string list = put(user, mark, "/d/x", "x");
        put(user, mark, "/e/x", "x");
        put(user, mark, "/e/y", "y");
        putRun(user, mark, "00000001-finished", "\"failed\":3");
        (void)storage_.readPart(user, storage_.version(user, 2) ? 2 : 1, 0, 1);
        (void)storage_.readPart(user, storage_.version(user, 6) ? 6 : 1, 0, 1);
        ASSERT_TRUE(storage_.deleteVersion(user, list));
        ASSERT_TRUE(deletions_.begin(user, mark, "/e"));
        journal_.addReport(
            {{"userName", user}, {"machineName", mark}, {"numberOfFilesNotBackedUp", "1"}});
        journal_.addEvent(
            {{"userName", user}, {"systemName", mark}, {"eventType", "BackupEndedWithErrors"}});
    }
    const std::string anns = html({"ann"});
    EXPECT_NE(anns.find("mark-of-ann"), std::string::npos);
    EXPECT_EQ(anns.find("bob"), std::string::npos);
    const std::string all = html({"ann", "bob"}, true);
    EXPECT_NE(all.find("mark-of-ann"), std::string::npos);
    EXPECT_NE(all.find("mark-of-bob"), std::string::npos);
    EXPECT_NE(all.find("data-label=\"Account\"><div><bdi>bob</bdi>"), std::string::npos);
    EXPECT_EQ(anns.find("data-label=\"Account\""), std::string::npos);
}

TEST_F(OverviewTest, VeryManyAccountsAreCutOffAndTold)
{
    std::vector<std::string> users;
    for (int i = 0; i < 203; ++i)
        users.push_back("user" + std::to_string(i));
    const std::string page = html(users, true);
    EXPECT_NE(page.find("3 more accounts are not shown."), std::string::npos);
    EXPECT_NE(page.find("Of the first 24 accounts."), std::string::npos);
}

} // namespace
} // namespace stowline::devserver
