// Restores into folders into which somebody else writes meanwhile: what he puts in the place of
// what is being put back gets neither its mode nor its owner nor its name as a success.
#include "stowline/backup/RestoreRun.h"

#include "stowline/backup/StoredTreeTest.h"
#include "stowline/backup/restore/FilePlacer.h"
#include "stowline/platform/files/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace stowline;
using namespace stowline::backup;
namespace fs = std::filesystem;

unsigned modeOf(const fs::path& path)
{
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777U : 0;
}

/// Listens to a restore and writes into its folder, once each.
class Intruder : public RestoreObserver {
public:
    void itemDone(const RestoredItem& item) override
    {
        for (const std::string& fault : item.faults)
            faults += fault + "\n";
        once(atItem, item.path);
    }
    void progress(const RestoreProgress& /*progress*/) override { once(atContent, {}); }

    std::function<bool(const std::string& path)> atItem;    ///< whether it was the one
    std::function<bool(const std::string& path)> atContent; ///< a content is about to come
    std::string faults;
    int acted = 0;

private:
    void once(std::function<bool(const std::string&)>& act, const std::string& path)
    {
        if (!act || !act(path))
            return;
        act = nullptr;
        ++acted;
    }
};

class RestoreSwap : public ::testing::Test, public Stored {
protected:
    [[nodiscard]] RestoreSummary restoreWith(Intruder& intruder)
    {
        const RestoreRequest request{.choice = choice,
                                     .paths = {folder().string()},
                                     .target = target.path(),
                                     .jobs = 1,
                                     .partBytes = 100000};
        return runRestore(request, intruder, stop);
    }

    [[nodiscard]] fs::path tree() const { return target.path() / "tree"; }

    /// Puts a program in the place of what is gathered in a folder.
    [[nodiscard]] bool swapGathering(const fs::path& in) const
    {
        for (const auto& entry : fs::directory_iterator(in)) {
            const std::string name = entry.path().filename();
            if (!isGatheringName(name))
                continue;
            fs::rename(entry.path(), in / "moved");
            EXPECT_TRUE(platform::writeFileAtomically(entry.path(), "evil"));
            EXPECT_EQ(chmod(entry.path().c_str(), 0711), 0);
            return true;
        }
        return false;
    }

    void expectEvilAlone(const RestoreSummary& summary, const Intruder& intruder) const
    {
        EXPECT_EQ(intruder.acted, 1);
        EXPECT_EQ(summary.failed, 1U);
        EXPECT_NE(summary.end, ReadEnd::done);
        EXPECT_NE(
            intruder.faults.find((folder() / "tool").string() + ": something else took its place"),
            std::string::npos)
            << intruder.faults;
        EXPECT_FALSE(fs::exists(tree() / "tool"));
        int evils = 0;
        for (const auto& entry : fs::directory_iterator(tree())) {
            if (platform::readFile(entry.path()) != "evil")
                continue;
            ++evils;
            EXPECT_EQ(modeOf(entry.path()), 0711U); // neither given anything nor taken away
        }
        EXPECT_EQ(evils, 1);
        EXPECT_EQ(modeOf(tree() / "moved") & 06000U, 0U);
    }
};

TEST_F(RestoreSwap, ASetUserIdFileThatIsSwappedWhileItIsFetchedGivesItsModeToNothingElse)
{
    machine.write("tree/tool", noise(250000));
    ASSERT_EQ(chmod((folder() / "tool").c_str(), 04755), 0);
    run();
    Intruder intruder;
    intruder.atContent = [this](const std::string&) { return swapGathering(tree()); };
    expectEvilAlone(restoreWith(intruder), intruder);
}

TEST_F(RestoreSwap, ASetUserIdFileThatIsSwappedOnceItIsWholeGivesItsNameToNothingElse)
{
    machine.write("tree/tool", noise(250000));
    machine.write("tree/unchanged", "u"); // comes behind it
    ASSERT_EQ(chmod((folder() / "tool").c_str(), 04755), 0);
    run();
    fs::create_directory(tree());
    fs::copy(folder() / "unchanged", tree() / "unchanged");
    Intruder intruder;
    intruder.atItem = [this](const std::string& item) {
        return item.ends_with("/unchanged") && swapGathering(tree());
    };
    expectEvilAlone(restoreWith(intruder), intruder);
}

TEST_F(RestoreSwap, AFileGetsItsSetIdBitsOnceItHasItsName)
{
    machine.write("tree/tool", "t");
    machine.write("tree/unchanged", "u");
    ASSERT_EQ(chmod((folder() / "tool").c_str(), 06751), 0);
    run();
    fs::create_directory(tree());
    fs::copy(folder() / "unchanged", tree() / "unchanged");
    Intruder intruder;
    unsigned whileGathered = 0;
    intruder.atItem = [&](const std::string& item) {
        for (const auto& entry : fs::directory_iterator(tree())) {
            if (isGatheringName(entry.path().filename().string()))
                whileGathered = modeOf(entry.path());
        }
        return item.ends_with("/unchanged");
    };
    const RestoreSummary summary = restoreWith(intruder);
    EXPECT_EQ(summary.end, ReadEnd::done) << summary.sentence;
    EXPECT_EQ(whileGathered, 0751U);
    EXPECT_EQ(modeOf(tree() / "tool"), 06751U);
}

TEST_F(RestoreSwap, AFolderThatTakesThePlaceOfARestoredOneIsLeftAsItIs)
{
    machine.write("tree/sub/late", "late");
    ASSERT_EQ(chmod((folder() / "sub").c_str(), 0755), 0);
    run();
    fs::create_directories(tree() / "private");
    target.write("tree/private/secret", "s");
    ASSERT_EQ(chmod((tree() / "private").c_str(), 0700), 0);
    Intruder intruder;
    intruder.atItem = [this](const std::string& item) {
        if (!item.ends_with("/sub/late")) // the folder gets its mode behind what is in it
            return false;
        fs::rename(tree() / "sub", tree() / "away");
        fs::rename(tree() / "private", tree() / "sub");
        return true;
    };
    const RestoreSummary summary = restoreWith(intruder);
    EXPECT_EQ(intruder.acted, 1);
    EXPECT_NE(summary.end, ReadEnd::done);
    EXPECT_EQ(modeOf(tree() / "sub"), 0700U);
    EXPECT_EQ(platform::readFile(tree() / "sub/secret"), "s");
    EXPECT_NE(intruder.faults.find((folder() / "sub").string() + ": something else took its place"),
              std::string::npos)
        << intruder.faults;
}

TEST_F(RestoreSwap, AnIdenticalFileOfSomebodyElseIsNotMadeASetUserIdProgram)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only the superuser can make files of other users";
    machine.write("tree/tool", "t");
    ASSERT_EQ(chmod((folder() / "tool").c_str(), 04755), 0);
    run();
    fs::create_directory(tree());
    target.write("tree/tool", "t");
    ASSERT_EQ(lchown((tree() / "tool").c_str(), 1234, 4321), 0);
    struct stat before {};
    ASSERT_EQ(stat((tree() / "tool").c_str(), &before), 0);
    const int held = open((tree() / "tool").c_str(), O_WRONLY | O_CLOEXEC); // as its owner could
    Intruder intruder;
    EXPECT_EQ(restoreWith(intruder).end, ReadEnd::done);
    EXPECT_EQ(pwrite(held, "e", 1, 0), 1);
    close(held);
    EXPECT_EQ(platform::readFile(tree() / "tool"), "t");
    EXPECT_EQ(modeOf(tree() / "tool"), 04755U);
}

TEST_F(RestoreSwap, AnIdenticalFileOfSomebodyElseIsNotGivenToAThirdUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only the superuser can make files of other users";
    machine.write("tree/file", "f");
    run();
    fs::create_directory(tree());
    target.write("tree/file", "f");
    ASSERT_EQ(lchown((tree() / "file").c_str(), 1234, 4321), 0);
    const int held = open((tree() / "file").c_str(), O_WRONLY | O_CLOEXEC); // as its owner could
    Intruder intruder;
    EXPECT_EQ(restoreWith(intruder).end, ReadEnd::done);
    EXPECT_EQ(pwrite(held, "e", 1, 0), 1);
    close(held);
    EXPECT_EQ(platform::readFile(tree() / "file"), "f");
    struct stat there {};
    ASSERT_EQ(stat((tree() / "file").c_str(), &there), 0);
    EXPECT_EQ(there.st_uid, 0U);
}

} // namespace
