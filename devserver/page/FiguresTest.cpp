// What the storage tells of accounts for people.
#include "devserver/page/HeldServiceTest.h"
#include "stowline/platform/files/Files.h"

namespace stowline::devserver {
namespace {

using namespace std::chrono_literals;

using FiguresTest = HeldService;

TEST_F(FiguresTest, MachinesAreAddedUpWithoutTheRecordsOfRuns)
{
    put("ann", "iMac", "/d/a", "12345");
    letPass(1h);
    put("ann", "iMac", "/d/a", "123");
    put("ann", "PC", "/x", "1");
    put("bob", "Mac", "/x", "1234567");
    putRun("ann", "iMac", "00000001-finished", "\"items\":1");
    const auto machines = storage_.machines("ann");
    ASSERT_EQ(machines.size(), 2U);
    EXPECT_EQ(machines[1].systemName, "iMac");
    EXPECT_EQ(machines[1].files, 1);
    EXPECT_EQ(machines[1].bytes, 3U);
    EXPECT_EQ(machines[1].versions, 3);
    EXPECT_GT(machines[1].storedBytes, 8U);
    EXPECT_EQ(machines[1].lastStored, "2026-01-10 01:00:00");
    EXPECT_EQ(machines[0].damaged, 0);
    EXPECT_EQ(storage_.machines("nobody").size(), 0U);
}

TEST_F(FiguresTest, WhatIsKnownToBeDamagedIsCounted)
{
    put("ann", "iMac", "/a", "12345");
    const StoredVersion version = storage_.version("ann", 1).value();
    ASSERT_TRUE(
        platform::writeFileAtomically(folder_.path() / version.serverFile.substr(1), "54321"));
    EXPECT_EQ(storage_.readPart("ann", 1, 0, 9).outcome, ContentPart::Outcome::damaged);
    EXPECT_EQ(storage_.machines("ann").at(0).damaged, 1);
    EXPECT_TRUE(storage_.reads("ann").empty()); // nothing was handed out
}

TEST_F(FiguresTest, RecordsComeNewestFirstAndAreBoundedByChain)
{
    for (const char* name : {"00000001-begun", "00000001-finished", "00000002-begun", "no-record",
                             "00000003x-finished"})
        put("ann", "iMac", std::string("/=stowline=/records/c/") + name, name);
    put("ann", "PC", "/=stowline=/records/d/00000007-unfinished-01", "x");
    put("bob", "iMac", "/=stowline=/records/c/00000009-finished", "x");
    put("ann", "iMac", "/=stowline=/recordsx/00000008-finished", "x");
    const auto told = [this](int most) {
        std::vector<std::string> names;
        for (const StoredRecord& record : storage_.records("ann", most))
            names.push_back(record.systemName + " " + record.chain + " " + record.run + " " +
                            record.state);
        return names;
    };
    EXPECT_EQ(told(9),
              (std::vector<std::string>{"PC d 00000007 unfinished-01", "iMac c 00000002 begun",
                                        "iMac c 00000001 finished", "iMac c 00000001 begun"}));
    EXPECT_EQ(told(3).size(), 2U); // two of the three of one chain are of no record's name
}

TEST_F(FiguresTest, ReadsOfAMachineAreOneUntilAPauseAndStayOverARestart)
{
    put("ann", "iMac", "/a", "12345");
    put("ann", "PC", "/a", "1");
    putRun("ann", "iMac", "00000001-finished", "\"items\":1");
    (void)storage_.readPart("ann", 1, 0, 3);
    letPass(9min);
    (void)storage_.readPart("ann", 1, 3, 3);
    (void)storage_.readPart("ann", 3, 0, 3); // a record is not content
    letPass(10min);
    (void)storage_.readPart("ann", 2, 0, 3);
    (void)storage_.readPart("ann", 1, 0, 3);
    const auto reads = storage_.reads("ann");
    ASSERT_EQ(reads.size(), 3U);
    EXPECT_EQ(reads[2].systemName, "iMac");
    EXPECT_EQ(reads[2].parts, 2U);
    EXPECT_EQ(reads[2].bytes, 5U);
    EXPECT_EQ(reads[2].lastAt - reads[2].began, 540);
    EXPECT_EQ(reads[1].systemName, "PC");
    EXPECT_EQ(reads[0].parts, 1U);
    EXPECT_TRUE(storage_.reads("bob").empty());
    Storage again(folder_.path());
    EXPECT_EQ(again.reads("ann").size(), 3U);
}

TEST_F(FiguresTest, ReadsAreWrittenWhenTheServiceEnds)
{
    {
        Storage other(folder_.path());
        const UploadPlace place{"eve", other.uploadPath("eve", 1, "e"), "g"};
        ASSERT_TRUE(other.addPart(place, {.fileName = "f", .bytes = "12"}));
        ASSERT_EQ(other.registerFile({.place = place,
                                      .systemName = "iMac",
                                      .folder = "",
                                      .name = "f",
                                      .size = 2,
                                      .uploadedSize = 2}),
                  RegistrationOutcome::success);
        (void)other.readPart("eve", 1, 0, 9);
    }
    EXPECT_EQ(storage_.reads("eve").at(0).bytes, 2U);
}

TEST_F(FiguresTest, TheLastHundredReadsStay)
{
    put("ann", "iMac", "/a", "12345");
    for (int i = 0; i < 105; ++i) {
        (void)storage_.readPart("ann", 1, 0, 1);
        letPass(11min);
    }
    const auto reads = storage_.reads("ann");
    ASSERT_EQ(reads.size(), 100U);
    EXPECT_EQ(reads[0].began, storage_.secondsNow() - 11 * 60);
}

TEST_F(FiguresTest, WhatIsKeptIsToldByDayWithTheTimeThatIsLeft)
{
    const std::string first = put("ann", "iMac", "/a", "12345");
    const std::string second = put("ann", "iMac", "/b", "1");
    const std::string third = put("ann", "PC", "/b", "12");
    ASSERT_TRUE(storage_.deleteVersion("ann", first));
    for (int i = 0; i < 26; ++i) { // it looks each hour
        letPass(1h);
        (void)storage_.dropDeleted();
    }
    ASSERT_TRUE(storage_.deleteVersion("ann", second));
    ASSERT_TRUE(storage_.deleteVersion("ann", third));
    const auto groups = storage_.graceGroups("ann", 9);
    ASSERT_EQ(groups.size(), 3U);
    EXPECT_EQ(groups[0].deletedOn, "2026-01-10");
    EXPECT_EQ(groups[0].bytes, 5U);
    EXPECT_EQ(groups[0].secondsLeft, (7 * 24 - 26) * 3600);
    EXPECT_EQ(groups[1].systemName, "PC");
    EXPECT_EQ(groups[1].secondsLeft, 7 * 24 * 3600);
    EXPECT_EQ(storage_.graceGroups("ann", 1).size(), 1U);
    EXPECT_TRUE(storage_.graceGroups("bob", 9).empty());
    // A clock that jumps gives nothing up: what is left is by what passed, too.
    now_.clock += 24h * 365;
    EXPECT_GE(storage_.graceGroups("ann", 9)[0].secondsLeft, (7 * 24 - 28) * 3600);
}

TEST_F(FiguresTest, SpaceIsNotedAtTheEndOfARunAndWhereItChanged)
{
    const std::string list = put("ann", "iMac", "/a", "12345");
    EXPECT_TRUE(storage_.spaceNotes("ann").empty());
    putRun("ann", "iMac", "00000001-begun", "\"items\":1");
    EXPECT_TRUE(storage_.spaceNotes("ann").empty());
    putRun("ann", "iMac", "00000001-finished", "\"items\":1");
    ASSERT_EQ(storage_.spaceNotes("ann").size(), 1U);
    EXPECT_EQ(storage_.spaceNotes("ann")[0].bytes, storage_.usedBytes("ann"));
    letPass(1h);
    storage_.noteSpace();
    EXPECT_EQ(storage_.spaceNotes("ann").size(), 1U);
    ASSERT_TRUE(storage_.deleteVersion("ann", list));
    letPass(1h);
    storage_.noteSpace();
    ASSERT_EQ(storage_.spaceNotes("ann").size(), 2U);
    EXPECT_EQ(storage_.spaceNotes("ann")[1].deletedBytes, 5U);
    EXPECT_TRUE(storage_.spaceNotes("bob").empty());
}

TEST_F(FiguresTest, OfAnOlderDayTheLastNoteStays)
{
    put("ann", "iMac", "/a", "1");
    for (int i = 0; i < 4; ++i) { // at 0, 8 and 16 o'clock, and the next day
        put("ann", "iMac", "/a", "1");
        storage_.noteSpace();
        letPass(8h);
    }
    EXPECT_EQ(storage_.spaceNotes("ann").size(), 4U);
    letPass(48h);
    storage_.noteSpace();
    const auto notes = storage_.spaceNotes("ann");
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0].bytes, 4U);
    EXPECT_EQ(notes[1].bytes, 5U);
}

} // namespace
} // namespace stowline::devserver
