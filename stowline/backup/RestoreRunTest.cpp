#include "stowline/backup/RestoreRun.h"

#include "stowline/backup/RunHistory.h"
#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/VerifyRun.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"
#include "stowline/backup/restore/FilePlacer.h"
#include "stowline/backup/tree/TreeWalk.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/EveryKindOfItem.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <new>
#include <random>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using namespace stowline;
using namespace stowline::backup;
namespace fs = std::filesystem;

using stowline::test::setTime;
using Words = std::vector<std::string>;

void makeTree(const Stored& stored)
{
    test::makeTree(stored.machine, "tree", noise(450000));
}

/// Throws what it is given when the first file is done.
class ThrowingOnce : public RestoreObserver {
public:
    explicit ThrowingOnce(std::function<void()> throwing) : throwing_(std::move(throwing)) {}
    void itemDone(const RestoredItem& item) override
    {
        for (const std::string& fault : item.faults)
            faults += fault + "\n";
        if (item.kind == ItemKind::file && throwing_)
            std::exchange(throwing_, {})();
    }
    std::string faults;

private:
    std::function<void()> throwing_;
};

TEST(RestoreRun, GivesBackATreeToTheByteAndTheNanosecond)
{
    Stored stored;
    makeTree(stored);
    EXPECT_EQ(stored.run(), 1U);
    const auto summary = stored.restore();
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored.faultText();
    EXPECT_EQ(summary.failed, 0U);
    EXPECT_EQ(summary.found, summary.restored);
    EXPECT_EQ(stored.differences(), "");
    EXPECT_FALSE(hasGatherings(stored.target.path()));
    struct stat holes {};
    ASSERT_EQ(stat((stored.target.path() / "tree/holes").c_str(), &holes), 0);
    EXPECT_LT(holes.st_blocks * 512, 200000);
    struct stat plain {};
    ASSERT_EQ(stat((stored.target.path() / "tree/plain").c_str(), &plain), 0);
    EXPECT_EQ(plain.st_mtim.tv_nsec, 123456789);
    EXPECT_EQ(plain.st_nlink, 3U);
    EXPECT_TRUE(fs::is_fifo(stored.target.path() / "tree/pipe"));
}

TEST(RestoreRun, EndsForWantOfMemoryAndSaysSo)
{
    Stored stored;
    stored.machine.write("tree/file", "content");
    EXPECT_EQ(stored.run(), 1U);
    const RestoreRequest request{.choice = stored.choice,
                                 .paths = {stored.folder().string()},
                                 .target = stored.target.path(),
                                 .partBytes = 100000};
    EXPECT_EQ(stored.restore().end, ReadEnd::done); // from now on it is left as it is
    ThrowingOnce outOfMemory([] { throw std::bad_alloc(); });
    const auto ended = runRestore(request, outOfMemory, stored.stop);
    EXPECT_EQ(ended.end, ReadEnd::failed);
    EXPECT_EQ(ended.sentence, platform::kNoMemorySentence);
    EXPECT_EQ(outOfMemory.faults, "");
    ThrowingOnce outOfThreads([] {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    });
    EXPECT_NE(runRestore(request, outOfThreads, stored.stop).end, ReadEnd::done);
    EXPECT_NE(outOfThreads.faults.find(": " + std::string(platform::kNoThreadSentence)),
              std::string::npos)
        << outOfThreads.faults;
}

TEST(RestoreRun, LeavesAloneWhatIsRightAndRepairsWhatIsNot)
{
    Stored stored;
    makeTree(stored);
    stored.run();
    ASSERT_EQ(stored.restore().end, ReadEnd::done);
    const auto again = stored.restore();
    EXPECT_EQ(again.restored, 0U);
    EXPECT_EQ(again.unchanged, again.found);
    // The records alone.
    EXPECT_LT(again.fetchedBytes, 10000U);

    const fs::path tree = stored.target.path() / "tree";
    ASSERT_EQ(chmod((tree / "holes").c_str(), 0777), 0);
    stored.target.write("tree/deep/set-id", "y");
    fs::remove(tree / "third");
    stored.target.write("tree/third", "hello");
    fs::remove(tree / "deep/link");
    fs::create_symlink("elsewhere", tree / "deep/link");
    const auto repaired = stored.restore();
    EXPECT_EQ(repaired.end, ReadEnd::done) << repaired.sentence;
    EXPECT_EQ(repaired.bytes, 1U); // of content, only that of the changed file
    EXPECT_EQ(stored.differences(), "");
}

TEST(RestoreRun, FollowsNoLinkThatWasPlantedInTheTarget)
{
    Stored stored;
    makeTree(stored);
    stored.run();
    const test::TemporaryFolder outside;
    outside.write("er/large", "precious");
    outside.write("plain", "precious");
    fs::create_directory(stored.target.path() / "tree");
    fs::create_directory_symlink(outside.path(), stored.target.path() / "tree/deep");
    fs::create_symlink(outside.path() / "plain", stored.target.path() / "tree/plain");
    const auto summary = stored.restore();
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored.faultText();
    EXPECT_EQ(stored.differences(), "");
    EXPECT_EQ(platform::readFile(outside.path() / "er/large"), "precious");
    EXPECT_EQ(platform::readFile(outside.path() / "plain"), "precious");
}

TEST(RestoreRun, ObeysItsRulesAboutWhatIsThere)
{
    Stored stored;
    stored.machine.write("tree/a", "stored");
    stored.machine.write("tree/b", "stored");
    setTime(stored.folder() / "a", 2000, 0);
    stored.run();
    const auto set = [&stored] {
        stored.target.write("tree/a", "theirs");
        setTime(stored.target.path() / "tree/a", 3000, 0);
    };
    const auto content = [&stored] {
        return platform::readFile(stored.target.path() / "tree/a").value_or("");
    };
    set();
    const auto never = stored.restore([](auto& request) { request.overwrite = Overwrite::never; });
    EXPECT_EQ(never.end, ReadEnd::done);
    EXPECT_EQ(never.skipped, 1U);
    EXPECT_EQ(content(), "theirs");
    EXPECT_EQ(platform::readFile(stored.target.path() / "tree/b"), "stored");
    (void)stored.restore([](auto& request) { request.overwrite = Overwrite::ifNewer; });
    EXPECT_EQ(content(), "theirs");
    setTime(stored.target.path() / "tree/a", 1000, 0);
    (void)stored.restore([](auto& request) { request.overwrite = Overwrite::ifNewer; });
    EXPECT_EQ(content(), "stored");
    set();
    const auto dry = stored.restore([](auto& request) { request.isDryRun = true; });
    EXPECT_EQ(dry.wouldRestore, 2U); // the time of its folder too
    EXPECT_EQ(content(), "theirs");
    EXPECT_EQ(stored.restore().restored, 2U);
    EXPECT_EQ(content(), "stored");
    const auto always = stored.restore([](auto& r) { r.overwrite = Overwrite::always; });
    EXPECT_EQ(always.bytes, 12U);
}

/// What is newer stays, whatever kind of thing it is and the run holds.
TEST(RestoreRun, LeavesWhatIsNewerAloneWhateverItIs)
{
    Stored stored;
    stored.machine.write("tree/folder/deep", "stored");
    fs::create_symlink("somewhere", stored.folder() / "link");
    stored.machine.write("tree/one", "stored");
    fs::create_hard_link(stored.folder() / "one", stored.folder() / "two");
    for (const char* name : {"folder", "one"})
        setTime(stored.folder() / name, 2000, 0);
    stored.run();
    const auto ifNewer = [&stored] {
        return stored.restore([](auto& request) { request.overwrite = Overwrite::ifNewer; });
    };
    const auto put = [&stored](std::int64_t seconds) {
        fs::remove_all(stored.target.path() / "tree");
        for (const char* name : {"tree/folder", "tree/two"}) {
            stored.target.write(name, "theirs");
            setTime(stored.target.path() / name, seconds, 0);
        }
    };
    put(3000);
    const auto kept = ifNewer();
    EXPECT_EQ(kept.end, ReadEnd::someFailed);
    EXPECT_EQ(kept.failed, 2U) << stored.faultText(); // the folder, and what is in it
    EXPECT_NE(stored.faultText().find("something else stands in its place, and is not older"),
              std::string::npos)
        << stored.faultText();
    EXPECT_EQ(kept.skipped, 1U); // the other name
    for (const char* name : {"tree/folder", "tree/two"})
        EXPECT_EQ(platform::readFile(stored.target.path() / name), "theirs") << name;
    EXPECT_EQ(platform::readFile(stored.target.path() / "tree/one"), "stored");
    put(1000);
    EXPECT_EQ(ifNewer().end, ReadEnd::done) << stored.faultText();
    EXPECT_EQ(stored.differences(), "");
}

TEST(RestoreRun, CallsWhatIsTheSameUnchangedThoughNothingIsToBeReplaced)
{
    Stored stored;
    stored.machine.write("tree/a", "stored");
    fs::create_symlink("a", stored.folder() / "link");
    stored.run();
    ASSERT_EQ(stored.restore().end, ReadEnd::done);
    for (const Overwrite rule : {Overwrite::never, Overwrite::ifNewer}) {
        const auto again = stored.restore([rule](auto& request) { request.overwrite = rule; });
        EXPECT_EQ(again.unchanged, 3U);
        EXPECT_EQ(again.skipped, 0U);
        const auto dry = stored.restore([rule](auto& request) {
            request.overwrite = rule;
            request.isDryRun = true;
        });
        EXPECT_EQ(dry.unchanged, 3U);
    }
}

TEST(RestoreRun, TakesWhatPatternsAndPathsSay)
{
    Stored stored;
    for (const char* name : {"tree/a/x.o", "tree/a/x.c", "tree/b/y.c", "tree/z.txt"})
        stored.machine.write(name, name);
    stored.run();
    (void)stored.restore([](auto& request) {
        request.include = {"*.c"};
        request.exclude = {"b"};
    });
    const fs::path tree = stored.target.path() / "tree";
    EXPECT_TRUE(fs::exists(tree / "a/x.c"));
    EXPECT_FALSE(fs::exists(tree / "a/x.o"));
    EXPECT_FALSE(fs::exists(tree / "b"));
    EXPECT_FALSE(fs::exists(tree / "z.txt"));
    const auto one = stored.restore(
        [&](auto& request) { request.paths = {(stored.folder() / "b/y.c").string()}; });
    EXPECT_EQ(one.restored, 1U);
    EXPECT_EQ(platform::readFile(stored.target.path() / "y.c"), "tree/b/y.c");
    const auto nothing = stored.restore([](auto& request) { request.paths = {"/no/such"}; });
    EXPECT_EQ(nothing.end, ReadEnd::notFound);
    fs::remove_all(stored.folder());
    const auto back = stored.restore([](auto& request) { request.target.reset(); });
    EXPECT_EQ(back.end, ReadEnd::done) << back.sentence;
    EXPECT_EQ(platform::readFile(stored.folder() / "b/y.c"), "tree/b/y.c");
}

TEST(RestoreRun, GoesBackToAnEarlierRunAndTellsWhatChanged)
{
    Stored stored;
    stored.machine.write("tree/a", "first");
    stored.machine.write("tree/gone", "g");
    stored.run();
    stored.machine.write("tree/a", "second");
    stored.machine.write("tree/new", "n");
    fs::remove(stored.folder() / "gone");
    stored.run();
    const auto first = stored.restore([](auto& request) { request.choice.run = 1; });
    EXPECT_EQ(first.run, 1U);
    EXPECT_EQ(platform::readFile(stored.target.path() / "tree/a"), "first");
    EXPECT_TRUE(fs::exists(stored.target.path() / "tree/gone"));
    EXPECT_FALSE(fs::exists(stored.target.path() / "tree/new"));
    std::string changes;
    const auto end = forEachDifference(
        stored.choice, 1, 2,
        [&](const RunDifference& difference) {
            if (difference.item.item.kind == ItemKind::file)
                changes += std::string(nameOf(difference.kind)) + " " +
                           fs::path(difference.item.item.path).filename().string() + "\n";
        },
        stored.stop);
    EXPECT_EQ(end.end, ReadEnd::done) << end.sentence;
    EXPECT_EQ(changes, "changed a\nwent gone\ncame new\n");
    std::vector<RunEntry> runs;
    EXPECT_EQ(listRuns(
                  stored.choice, [&](const RunEntry& run) { runs.push_back(run); }, stored.stop)
                  .end,
              ReadEnd::done);
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[0].state, RunState::finished);
    std::string content;
    const auto read = readStoredFile(
        stored.choice, (stored.folder() / "a").string(),
        [&content](std::string_view bytes) {
            content += bytes;
            return true;
        },
        stored.stop);
    EXPECT_EQ(read.end, ReadEnd::done) << read.sentence;
    EXPECT_EQ(content, "second");
}

/// Every stored file of some content on the service's disk is changed.
int damage(const fs::path& data, const std::string& content, bool removes)
{
    int count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(data)) {
        if (!entry.is_regular_file() || platform::readFile(entry.path()) != content)
            continue;
        ++count;
        if (removes)
            fs::remove(entry.path());
        else
            std::ofstream(entry.path(), std::ios::in | std::ios::binary) << "X";
    }
    return count;
}

TEST(RestoreRun, TakesTheHighestNumberThatBeganByThenWhateverTheClockWas)
{
    Stored stored;
    const std::vector<std::int64_t> moments{1000, 9000, 2000, 3000, 500}; // of runs 1 to 5
    for (std::size_t i = 0; i < moments.size(); ++i) {
        stored.machine.write("tree/run", std::to_string(i + 1));
        stored.begun = {moments[i], 0};
        stored.run();
    }
    for (const std::int64_t at : {500, 2999, 100000}) {
        fs::remove_all(stored.target.path() / "tree");
        const auto sum = stored.restore([at](auto& r) { r.choice.at = Timestamp{at, 0}; });
        EXPECT_EQ(sum.end, ReadEnd::done) << sum.sentence;
        EXPECT_EQ(platform::readFile(stored.target.path() / "tree/run"), "5") << at;
        EXPECT_EQ(sum.origin.notes,
                  Words{"Run 5 came after run 4, but says that it began before it: the clock of "
                        "the machine was wrong during one of them. If another run than 5 is meant, "
                        "please name it by its number."});
    }
    EXPECT_EQ(stored.restore([](auto& r) {
                        r.choice.at = Timestamp{499, 0};
                    })
                  .end,
              ReadEnd::notFound);
}

TEST(RestoreRun, AClockThatWasAheadOnceHidesNoLaterRun)
{
    Stored stored;
    for (const std::int64_t moment : {1000, 9000, 2000, 3000}) {
        stored.begun = {moment, 0};
        stored.machine.write("tree/moment", std::to_string(moment));
        stored.run();
    }
    const auto contentAt = [&stored](std::int64_t at) {
        fs::remove_all(stored.target.path() / "tree");
        EXPECT_EQ(stored.restore([at](auto& r) {
                            r.choice.at = Timestamp{at, 0};
                        })
                      .end,
                  ReadEnd::done);
        return platform::readFile(stored.target.path() / "tree/moment");
    };
    EXPECT_EQ(contentAt(1000), "1000");
    EXPECT_EQ(contentAt(1999), "1000");
    EXPECT_EQ(contentAt(2000), "2000");
    EXPECT_EQ(contentAt(3500), "3000");
    EXPECT_EQ(contentAt(9500), "3000");
}

TEST(RestoreRun, TellsOfContentThatIsNotWhatWasStoredAndPutsBackTheRest)
{
    Stored stored;
    stored.machine.write("tree/good", "all is well");
    stored.machine.write("tree/bad", "will be damaged");
    stored.machine.write("tree/lost", "will be lost");
    stored.run();
    ASSERT_EQ(damage(stored.server.data(), "will be damaged", false), 1);
    ASSERT_EQ(damage(stored.server.data(), "will be lost", true), 1);
    const auto summary = stored.restore();
    EXPECT_EQ(summary.end, ReadEnd::badContent) << summary.sentence;
    EXPECT_EQ(summary.badContent, 2U) << stored.faultText();
    const fs::path tree = stored.target.path() / "tree";
    EXPECT_EQ(platform::readFile(tree / "good"), "all is well");
    EXPECT_FALSE(fs::exists(tree / "bad"));
    EXPECT_FALSE(fs::exists(tree / "lost"));
    EXPECT_FALSE(hasGatherings(tree));

    struct Listener : VerifyObserver {
        void found(const VerifyFinding& finding) override
        {
            text += std::string(nameOf(finding.kind)) + " " +
                    fs::path(finding.path).filename().string() + "\n";
        }
        std::string text;
    } byWord, byBytes;
    const auto word = runVerify({.choice = stored.choice}, byWord, stored.stop);
    EXPECT_EQ(word.end, ReadEnd::badContent) << word.sentence;
    EXPECT_EQ(word.missing + word.damaged, 2U) << byWord.text;
    EXPECT_EQ(word.checked, 3U);
    const auto read = runVerify({.choice = stored.choice, .fractionRead = 1}, byBytes, stored.stop);
    EXPECT_EQ(read.end, ReadEnd::badContent);
    EXPECT_EQ(read.read, 1U);
}

TEST(RestoreRun, GoesOnWithWhatWasCutOff)
{
    Stored stored;
    const std::string content = noise(900000);
    stored.machine.write("tree/large", content);
    stored.run();
    fs::create_directory(stored.target.path() / "tree");
    std::string gathering;
    {
        // As a kill leaves it: a part of the content under the name of the gathering.
        const auto dry = stored.restore([](auto& r) { r.overwrite = Overwrite::always; });
        ASSERT_EQ(dry.end, ReadEnd::done);
        const auto digest =
            stored.index.find((stored.folder() / "large").string())->content->digest;
        gathering = ".stowline-restore-" +
                    platform::Sha256::of(std::string("large") + '\0' + digest).substr(0, 16);
        fs::remove(stored.target.path() / "tree/large");
        stored.target.write("tree/" + gathering, content.substr(0, 800000));
    }
    const auto resumed = stored.restore();
    EXPECT_EQ(resumed.end, ReadEnd::done) << resumed.sentence;
    EXPECT_LT(resumed.fetchedBytes, 110000U);
    EXPECT_TRUE(platform::readFile(stored.target.path() / "tree/large") == content);
    // What was left is not what was stored.
    fs::remove(stored.target.path() / "tree/large");
    stored.target.write("tree/" + gathering, "something else");
    const auto anew = stored.restore();
    EXPECT_EQ(anew.end, ReadEnd::done) << anew.sentence;
    EXPECT_TRUE(platform::readFile(stored.target.path() / "tree/large") == content);
    EXPECT_FALSE(hasGatherings(stored.target.path()));
}

TEST(RestoreRun, TakesAwayOnlyWhatRestoresLeftThemselves)
{
    Stored stored;
    const std::string item = ".stowline-restore-0123456789abcdef";
    const std::string own = ".stowline-restore-fedcba9876543210";
    const std::string left = ".stowline-restore-00112233445566ff";
    stored.machine.write("tree/" + item, "an item of the run");
    stored.machine.write("tree/a", "a");
    stored.run();
    const fs::path tree = stored.target.path() / "tree";
    stored.target.write("tree/" + own, "the user's own");
    stored.target.write("tree/" + left, "of another content");
    if (setxattr((tree / left).c_str(), "user.stowline.gathering", "1", 1, 0) != 0)
        GTEST_SKIP() << "the file system of the tests keeps no extended attributes";
    for (int i = 0; i < 2; ++i) {
        const auto summary = stored.restore();
        EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence;
        EXPECT_EQ(platform::readFile(tree / item), "an item of the run");
        EXPECT_EQ(platform::readFile(tree / own), "the user's own");
        EXPECT_FALSE(fs::exists(tree / left));
    }
    fs::remove(tree / own);
    EXPECT_EQ(stored.restore().end, ReadEnd::done); // the time of the folder
    EXPECT_EQ(stored.differences(), "");            // no mark either
}

TEST(RestoreRun, AnItemThatHasTheNameOfAGatheringOfAnotherIsNotWrittenOver)
{
    Stored stored;
    stored.machine.write("tree/a", "hello");
    const std::string gathering = gatheringName("a", platform::Sha256::of("hello"));
    stored.machine.write("tree/" + gathering, "precious");
    stored.run();
    const auto summary = stored.restore();
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored.faultText();
    EXPECT_EQ(stored.differences(), "");
}

TEST(RestoreRun, PutsHardLinksOfLinksAndPipesBackAsSuch)
{
    Stored stored;
    const fs::path tree = stored.folder();
    stored.machine.write("tree/sub/file", "f");
    ASSERT_EQ(symlink("nowhere", (tree / "link").c_str()), 0);
    ASSERT_EQ(mkfifo((tree / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(linkat(AT_FDCWD, (tree / "link").c_str(), AT_FDCWD, (tree / "sub/link").c_str(), 0),
              0);
    ASSERT_EQ(link((tree / "pipe").c_str(), (tree / "sub/pipe").c_str()), 0);
    stored.run();
    for (int i = 0; i < 2; ++i) {
        const auto summary = stored.restore();
        EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence << stored.faultText();
        EXPECT_EQ(summary.unchanged, i == 0 ? 0U : summary.found);
        const fs::path back = stored.target.path() / "tree";
        for (const char* name : {"link", "pipe"}) {
            struct stat first {};
            struct stat further {};
            ASSERT_EQ(lstat((back / name).c_str(), &first), 0);
            ASSERT_EQ(lstat((back / "sub" / name).c_str(), &further), 0);
            EXPECT_EQ(first.st_ino, further.st_ino) << name;
        }
    }
    // The first name is left out: the content comes back all the same.
    fs::remove_all(stored.target.path() / "tree");
    const auto part = stored.restore([](auto& request) { request.exclude = {"/link", "/pipe"}; });
    EXPECT_EQ(part.end, ReadEnd::done) << part.sentence << stored.faultText();
    EXPECT_EQ(fs::read_symlink(stored.target.path() / "tree/sub/link"), "nowhere");
    EXPECT_TRUE(fs::is_fifo(stored.target.path() / "tree/sub/pipe"));
}

TEST(RestoreRun, PutsNoNamedPathOverAnother)
{
    Stored stored;
    const fs::path tree = stored.folder();
    fs::create_directories(tree / "one");
    fs::create_directories(tree / "two");
    std::ofstream(tree / "one/same") << "1";
    std::ofstream(tree / "two/same") << "22";
    stored.run();
    const auto namesBoth = [&](RestoreRequest& request) {
        request.paths = {tree / "one/same", tree / "two/same"};
    };
    const auto refused = stored.restore(namesBoth);
    EXPECT_EQ(refused.end, ReadEnd::failed);
    EXPECT_EQ(refused.sentence, (tree / "one/same").string() + " and " +
                                    (tree / "two/same").string() +
                                    " would both be put into one place. Please restore them one "
                                    "after the other, each into a folder of its own.");
    EXPECT_TRUE(fs::is_empty(stored.target.path()));
    fs::remove_all(tree);
    const auto inPlace = stored.restore([&](RestoreRequest& request) {
        namesBoth(request);
        request.target.reset();
    });
    EXPECT_EQ(inPlace.end, ReadEnd::done) << inPlace.sentence;
    EXPECT_EQ(platform::readFile(tree / "one/same"), "1");
    EXPECT_EQ(platform::readFile(tree / "two/same"), "22");
}

TEST(RestoreRun, CountsOnceWhatIsNamedTwiceOrInAnotherNamedFolder)
{
    Stored stored;
    const fs::path tree = stored.folder();
    stored.machine.write("tree/in/a", "1");
    stored.machine.write("tree/b", "2");
    stored.run();
    const auto again = stored.restore([&](RestoreRequest& request) {
        request.paths = {tree / "in", tree, tree / "in/a", tree};
        request.target.reset();
    });
    EXPECT_EQ(again.end, ReadEnd::done) << again.sentence;
    EXPECT_EQ(again.found, 4U);
    EXPECT_EQ(again.unchanged, 4U);
    const auto missing = stored.restore([&](RestoreRequest& request) {
        request.paths = {tree, tree / "in/none"};
        request.target.reset();
    });
    EXPECT_EQ(missing.end, ReadEnd::someFailed) << "what is not in the run is told all the same";
    const auto aside = stored.restore([&](RestoreRequest& request) {
        request.paths = {tree, tree / "in"}; // two places
    });
    EXPECT_EQ(aside.found, 6U);
    EXPECT_EQ(platform::readFile(stored.target.path() / "in/a"), "1");
}

TEST(RestoreRun, SaysOnceAKindWhatItLeavesOut)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make devices";
    Stored stored;
    stored.machine.write("tree/a", "a");
    for (const char* name : {"null", "zero", "full"})
        ASSERT_EQ(mknod((stored.folder() / name).c_str(), S_IFCHR | 0600, 0x103), 0)
            << "devices cannot be made here";
    stored.run();
    const auto check = [&stored](const RestoreSummary& summary) {
        EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence;
        EXPECT_EQ(summary.skipped, 3U);
        ASSERT_EQ(summary.losses.size(), 1U);
        EXPECT_EQ(summary.losses[0].items, 3U);
        EXPECT_TRUE(summary.losses[0].sentence.starts_with("3 devices are left out"))
            << summary.losses[0].sentence;
        EXPECT_EQ(stored.faultText(), "");
    };
    // Also where the target is not there yet, and nothing is done.
    check(stored.restore([](auto& request) {
        request.isDryRun = true;
        request.target = *request.target / "new";
    }));
    check(stored.restore());
    EXPECT_EQ(stored.restore([](auto& request) { request.restoresDevices = true; }).restored, 4U);
}

TEST(RestoreRun, SaysThatNothingIsRecordedOrThatThereIsNoSuchRun)
{
    Stored stored;
    EXPECT_EQ(stored.restore().end, ReadEnd::notFound);
    stored.machine.write("tree/a", "a");
    stored.run();
    EXPECT_EQ(stored.restore([](auto& r) { r.choice.run = 7; }).end, ReadEnd::notFound);
    EXPECT_EQ(stored.restore([](auto& r) {
                        r.choice.at = Timestamp{-10, 0};
                    })
                  .end,
              ReadEnd::notFound);
    EXPECT_EQ(stored.restore([](auto& r) { r.choice.account.systemName = "other"; }).end,
              ReadEnd::notFound);
    // By another machine that has nothing but the account.
    EXPECT_EQ(stored.restore([](auto& r) {
                        r.choice.identity = ChainIdentity{"new", "bob"};
                    })
                  .end,
              ReadEnd::done);
}

TEST(RestoreRun, StopsSoonAndLeavesNothingHalf)
{
    Stored stored;
    for (int i = 0; i < 30; ++i)
        stored.machine.write("tree/f" + std::to_string(i), noise(300000));
    stored.run();
    const fs::path closed = stored.target.path() / stored.folder().filename();
    fs::create_directory(closed);
    ASSERT_EQ(chmod(closed.c_str(), 0500), 0);
    struct Stopping : RestoreObserver {
        explicit Stopping(const StopRequest& itsStop) : stop(itsStop) {}
        void progress(const RestoreProgress& progress) override
        {
            if (progress.doneBytes > 0)
                stop.request();
        }
        const StopRequest& stop;
    } stopping(stored.stop);
    const RestoreRequest request{.choice = stored.choice,
                                 .paths = {stored.folder().string()},
                                 .target = stored.target.path(),
                                 .jobs = 2,
                                 .bytesPerSecond = 200000,
                                 .partBytes = 100000};
    const auto summary = runRestore(request, stopping, stored.stop);
    EXPECT_EQ(summary.end, ReadEnd::interrupted);
    // All would take 45 seconds; what is asked for when the stop comes still arrives.
    EXPECT_LT(summary.fetchedBytes, 1000000U);
    EXPECT_EQ(fs::status(closed).permissions(), fs::perms(0500)) << "open for the restore alone";
    for (const auto& entry : fs::recursive_directory_iterator(stored.target.path())) {
        if (entry.is_regular_file() && entry.path().filename().string().starts_with("f")) {
            EXPECT_EQ(entry.file_size(), 300000U);
        }
    }
}

/// The real command, which finds what others stored with nothing but the account.
test::ProgramRun command(const Stored& stored, const test::TemporaryFolder& home, Words words)
{
    words.insert(words.begin(), test::builtProgram("stowline"));
    return {std::move(words),
            {{"STOWLINE_USERNAME", "ann"},
             {"STOWLINE_PASSWORD", "secret"},
             {"STOWLINE_BUNDLE", stored.server.bundle().string()},
             {"HOME", home.path().string()}}};
}

TEST(RestoreCommand, PutsBackPrintsListsAndVerifies)
{
    Stored stored;
    const test::TemporaryFolder home;
    const auto run = [&](const Words& words) {
        return test::runProgram(command(stored, home, words));
    };
    const std::string target = stored.target.path().string();
    makeTree(stored);
    stored.run();
    stored.machine.write("tree/plain", "hello again");
    stored.run();
    const std::string tree = stored.folder().string();

    const auto nowhere = run({"restore", tree, "--machine", "iMac"});
    EXPECT_EQ(nowhere.status, 2);
    const auto restored = run({"restore", tree, "--to", target, "--machine", "iMac", "--json"});
    EXPECT_EQ(restored.status, 0) << restored.errors;
    EXPECT_NE(restored.output.find("\"failed\":0,"), std::string::npos) << restored.output;
    EXPECT_EQ(stored.differences(), "");
    const auto cat = run({"cat", tree + "/plain", "--at", "1", "--machine", "iMac"});
    EXPECT_EQ(cat.status, 0) << cat.errors;
    EXPECT_EQ(cat.output, "hello");
    EXPECT_EQ(run({"cat", tree + "/none", "--machine", "iMac"}).status, 4);
    const auto runs = run({"runs", "--machine", "iMac", "--json"});
    EXPECT_EQ(runs.status, 0) << runs.errors;
    EXPECT_EQ(std::ranges::count(runs.output, '\n'), 3);
    const auto diff = run({"diff", "1", "2", "--machine", "iMac"});
    EXPECT_EQ(diff.status, 0) << diff.errors;
    EXPECT_NE(diff.output.find("changed     " + tree + "/deep/another name"), std::string::npos)
        << diff.output;
    EXPECT_EQ(run({"verify", "--read", "--machine", "iMac"}).status, 0);
    ASSERT_GE(damage(stored.server.data(), "odd", false), 1);
    EXPECT_EQ(run({"verify", "--machine", "iMac"}).status, 7);
    EXPECT_EQ(run({"restore", tree, "--to", target + "/again", "--machine", "iMac"}).status, 7);
    EXPECT_EQ(run({"runs", "--machine", "nobody's"}).status, 4);
    EXPECT_EQ(run({"runs", "--at", "1"}).status, 2);
    EXPECT_EQ(run({"restore", tree, "--to", target, "--at", "someday"}).status, 2);
}

TEST(RestoreCommand, GoesOnHoweverOftenItIsKilled)
{
    Stored stored;
    const test::TemporaryFolder home;
    for (int i = 0; i < 40; ++i)
        stored.machine.write("tree/f" + std::to_string(i), noise(60000));
    stored.machine.write("tree/large", noise(2000000));
    stored.run();
    const auto restore = command(stored, home,
                                 {"restore", stored.folder().string(), "--to",
                                  stored.target.path().string(), "--machine", "iMac", "--bwlimit",
                                  "2m"}); // from nothing it takes longer than any of the moments
    const int kills = std::getenv("STOWLINE_LONG_TESTS") ? 200 : 10;
    std::minstd_rand random(1);
    int hits = 0;
    std::uniform_int_distribution<int> milliseconds(50, 1000);
    for (int kill = 0; kill < kills; ++kill) {
        if (kill % 10 == 9) // not only when there is hardly anything left to be done
            fs::remove_all(stored.target.path() / "tree");
        test::BackgroundProgram program(restore);
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random))); // any moment
        program.signal(SIGKILL);
        hits += program.wait().status == 1000 + SIGKILL ? 1 : 0;
        if (!fs::exists(stored.target.path() / "tree"))
            continue;
        for (const auto& entry : fs::directory_iterator(stored.target.path() / "tree")) {
            const std::string name = entry.path().filename().string();
            if (!name.starts_with(".stowline-restore-")) {
                EXPECT_EQ(entry.file_size(), name == "large" ? 2000000U : 60000U) << name;
            }
        }
    }
    EXPECT_GT(hits, 0);
    const auto last = test::runProgram(restore);
    EXPECT_EQ(last.status, 0) << last.errors;
    EXPECT_EQ(stored.differences(), "");
    EXPECT_FALSE(hasGatherings(stored.target.path()));
}

} // namespace
