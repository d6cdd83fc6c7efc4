#include "stowline/backup/tree/TreeWalk.h"

#include "stowline/platform/files/SourceFile.h"
#include "tests/support/MountNamespace.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline::backup {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/// Writes down what it is told, by paths from a folder on: "+" found, "." passage, "-" excluded,
/// "!" failed, "~" vanished.
class Recorder : public WalkObserver {
public:
    explicit Recorder(std::string top) : top_(std::move(top)) {}

    void found(FoundItem item) override
    {
        items.push_back(item.item.path);
        tell(item.isPassage ? "." : "+", item.item.path);
        if (whenFound)
            whenFound(item);
        found_.emplace(shortened(item.item.path), std::move(item));
    }
    void excluded(const std::string& path, ItemKind, const Exclusion& why) override
    {
        tell("-", path, sentenceOf(why));
    }
    void failed(const WalkFailure& failure) override
    {
        tell("!", failure.path, failure.reason);
        failures.push_back(failure);
    }
    void vanished(const std::string& path) override { tell("~", path); }
    void left(const FolderEnd& folder) override { ends.emplace(shortened(folder.path), folder); }

    [[nodiscard]] const FoundItem& at(const std::string& path) const { return found_.at(path); }
    [[nodiscard]] Lines linesOf(char sign) const
    {
        Lines some;
        for (const std::string& line : lines) {
            if (line[0] == sign)
                some.push_back(line);
        }
        return some;
    }

    Lines lines; ///< passages aside
    Lines items; ///< full paths of all that was found
    std::map<std::string, FolderEnd> ends;
    std::vector<WalkFailure> failures;
    std::function<void(FoundItem&)> whenFound;

private:
    [[nodiscard]] std::string shortened(const std::string& path) const
    {
        if (path == top_)
            return "/";
        return path.starts_with(top_ + "/") ? path.substr(top_.size() + 1) : path;
    }
    void tell(const char* sign, const std::string& path, const std::string& why = {})
    {
        if (*sign != '.')
            lines.push_back(sign + shortened(path) + (why.empty() ? "" : ": " + why));
    }

    std::string top_;
    std::map<std::string, FoundItem> found_;
};

class TreeWalkTest : public ::testing::Test {
protected:
    [[nodiscard]] fs::path at(const std::string& name) const { return folder_.path() / name; }
    fs::path write(const std::string& name, std::string_view content = "x") const
    {
        return folder_.write(name, content);
    }

    /// Walks, and checks what holds of every walk.
    Recorder walk(const Lines& names = {""}, const std::function<void(FoundItem&)>& whenFound = {})
    {
        Recorder recorder(folder_.path());
        recorder.whenFound = whenFound;
        options_.paths.clear();
        for (const std::string& name : names)
            options_.paths.push_back(name.starts_with('/') ? name : at(name).string());
        result_ = walkTree(options_, recorder, stop_);
        EXPECT_EQ(recorder.linesOf('+').size(), result_.found);
        EXPECT_EQ(recorder.linesOf('-').size(), result_.excluded);
        EXPECT_EQ(recorder.linesOf('!').size(), result_.failed);
        EXPECT_EQ(recorder.linesOf('~').size(), result_.vanished);
        EXPECT_EQ(recorder.items.size(), result_.found + result_.passages);
        for (std::size_t i = 1; i < recorder.items.size(); ++i)
            EXPECT_LT(comparePaths(recorder.items[i - 1], recorder.items[i]), 0)
                << recorder.items[i - 1] << " " << recorder.items[i];
        return recorder;
    }

    /// Runs in a process of an ordinary user. @return whether no expectation failed in it
    static bool asSomebody(const std::function<void()>& work)
    {
        const pid_t child = ::fork();
        if (child == 0) {
            if (::setgid(65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)
                ::_exit(9);
            work();
            ::_exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        return ::waitpid(child, &status, 0) == child && status == 0;
    }

    test::TemporaryFolder folder_;
    WalkOptions options_;
    platform::StopRequest stop_;
    WalkResult result_;
};

TEST_F(TreeWalkTest, TellsEveryItemOnceInWalkingOrder)
{
    for (const char* name : {"a/x", "a-b", "a.txt", "b/c/d", "\xff\n", "a/.h"})
        write(name);
    fs::create_directory(at("empty"));
    EXPECT_EQ(walk().lines, (Lines{"+/", "+a", "+a/.h", "+a/x", "+a-b", "+a.txt", "+b", "+b/c",
                                   "+b/c/d", "+empty", "+\xff\n"}));
}

TEST_F(TreeWalkTest, DescribesItemsOfEveryKindWithoutFollowingLinks)
{
    write("file", "12345");
    fs::create_directory_symlink("/etc", at("link"));
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0640), 0);
    ASSERT_EQ(::mknod(at("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const auto told = walk();
    EXPECT_EQ(told.lines, (Lines{"+/", "+file", "+link", "+pipe", "+socket"}));
    struct stat expected = {};
    ASSERT_EQ(::lstat(at("file").c_str(), &expected), 0);
    const ItemRecord& file = told.at("file").item;
    EXPECT_EQ(file.path, at("file"));
    EXPECT_EQ(file.kind, ItemKind::file);
    EXPECT_EQ(file.size, 5U);
    EXPECT_EQ(file.inode, expected.st_ino);
    EXPECT_EQ(file.ownerName, "root");
    EXPECT_EQ(file.modified.nanoseconds, static_cast<std::uint32_t>(expected.st_mtim.tv_nsec));
    EXPECT_EQ(file.changed.nanoseconds, static_cast<std::uint32_t>(expected.st_ctim.tv_nsec));
    EXPECT_EQ(told.at("link").item.kind, ItemKind::link);
    EXPECT_EQ(told.at("link").item.linkTarget, "/etc");
    EXPECT_EQ(told.at("pipe").item.kind, ItemKind::pipe);
    EXPECT_EQ(told.at("pipe").item.mode, 0640U);
    EXPECT_EQ(told.at("socket").item.kind, ItemKind::socket);
}

TEST_F(TreeWalkTest, HandsOnTheFolderToOpenTheFileBy)
{
    write("a/file", "content");
    const auto told = walk();
    const auto& found = told.at("a/file");
    fs::rename(at("a"), at("moved"));
    fs::create_directory_symlink("/etc", at("a"));
    int error = 0;
    const auto file = platform::SourceFile::open(found.folder->descriptor(), "file", error);
    ASSERT_TRUE(file);
    std::string room(7, '\0');
    EXPECT_EQ(file->readAt(0, room, error), 7U);
    EXPECT_EQ(room, "content");
}

TEST_F(TreeWalkTest, ReadsAttributesOfWhatItFound)
{
    const auto path = write("file");
    if (::setxattr(path.c_str(), "user.a", "b", 1, 0) != 0)
        GTEST_SKIP() << "The folder for temporary files keeps no attributes.";
    const auto told = walk({""}, [](FoundItem& item) {
        EXPECT_TRUE(item.item.attributes.empty());
        EXPECT_EQ(readAttributes(item), std::nullopt);
    });
    EXPECT_EQ(told.at("file").item.attributes, (std::vector<ExtendedAttribute>{{"user.a", "b"}}));
    auto gone = told.at("file");
    fs::remove(path);
    EXPECT_EQ(readAttributes(gone), "No such file or directory");
}

TEST_F(TreeWalkTest, TakesFilesPipesAndFoldersThatAreNamedAndTellsTheFoldersAbove)
{
    write("a/b/file");
    write("a/b/other");
    ASSERT_EQ(::mkfifo(at("a/pipe").c_str(), 0600), 0);
    const auto told = walk({"a/b/file", "a/pipe"});
    EXPECT_EQ(told.lines, (Lines{"+a/b/file", "+a/pipe"}));
    EXPECT_TRUE(told.at("a/b/file").isNamed);
    EXPECT_TRUE(told.at("a/b").isPassage);
    EXPECT_TRUE(told.at("/").isPassage);
    EXPECT_EQ(told.items.front(), "/");
    EXPECT_TRUE(told.ends.at("a/b").isPassage);
}

TEST_F(TreeWalkTest, TakesWhatIsNamedTwiceOrInsideAnotherOnce)
{
    write("a/b/file");
    EXPECT_EQ(walk({"a", "a/b", "a/", "a/b/../b/file", "a"}).lines,
              (Lines{"+a", "+a/b", "+a/b/file"}));
}

TEST_F(TreeWalkTest, TakesRelativePathsFromTheWorkingFolder)
{
    write("a/file");
    options_.paths = {"./a", "a/../a/file"};
    fs::current_path(folder_.path());
    Recorder recorder(folder_.path());
    (void)walkTree(options_, recorder, stop_);
    EXPECT_EQ(recorder.lines, (Lines{"+a", "+a/file"}));
}

TEST_F(TreeWalkTest, RecordsANamedLinkAndFollowsIt)
{
    write("disk/docs/file");
    fs::create_directory_symlink(at("disk/docs"), at("Documents"));
    const auto told = walk({"Documents"});
    EXPECT_EQ(told.lines, (Lines{"+Documents", "+disk/docs", "+disk/docs/file"}));
    EXPECT_EQ(told.at("Documents").item.kind, ItemKind::link);
    EXPECT_TRUE(told.at("disk/docs").isNamed);
    EXPECT_FALSE(told.at("Documents").isNamed);
}

TEST_F(TreeWalkTest, RecordsEveryLinkOnTheWay)
{
    write("real/file");
    fs::create_directory_symlink("two", at("one"));
    fs::create_directory_symlink("../" + folder_.path().filename().string() + "/real", at("two"));
    EXPECT_EQ(walk({"one/file"}).lines, (Lines{"+one", "+real/file", "+two"}));
}

TEST_F(TreeWalkTest, FailsNamedPathsThatLeadNowhere)
{
    write("file");
    fs::create_symlink("nothing", at("dangling"));
    fs::create_symlink("circle", at("circle"));
    const auto told = walk({"missing/x", "dangling", "circle", "file/x", "file"});
    EXPECT_EQ(told.lines,
              (Lines{"!circle: Too many levels of symbolic links", "!file/x: Not a directory",
                     "!missing/x: No such file or directory", "!nothing: No such file or directory",
                     "+dangling", "+file"}));
    for (const auto& failure : told.failures)
        EXPECT_TRUE(failure.isNamed);
}

TEST_F(TreeWalkTest, TellsNothingElseWhenNothingNamedIsThere)
{
    EXPECT_EQ(walk({"none"}).items, Lines{});
}

TEST_F(TreeWalkTest, TellsThatANamedFolderIsEmpty)
{
    fs::create_directory(at("disk"));
    const auto told = walk({"disk"});
    EXPECT_EQ(told.ends.at("disk").names, 0U);
    EXPECT_TRUE(told.ends.at("disk").isNamed);
    EXPECT_TRUE(told.ends.at("disk").isComplete);
}

TEST_F(TreeWalkTest, LeavesOutByPatternsFromTheNamedPathOn)
{
    for (const char* name :
         {"p/a.o", "p/a.c", "p/src/b.o", "p/src/x", "p/build/deep/z", "p/q/src/x"})
        write(name);
    ASSERT_TRUE(options_.rules.exclude("*.o"));
    ASSERT_TRUE(options_.rules.exclude("/src/x"));
    ASSERT_TRUE(options_.rules.exclude("build/"));
    EXPECT_EQ(walk({"p"}).lines,
              (Lines{"+p", "+p/a.c", "-p/a.o: pattern *.o", "-p/build: pattern build/", "+p/q",
                     "+p/q/src", "+p/q/src/x", "+p/src", "-p/src/b.o: pattern *.o",
                     "-p/src/x: pattern /src/x"}));
}

TEST_F(TreeWalkTest, TakesWhatIsNamedWhateverTheRulesSay)
{
    write("p/tmp/keep/file");
    write("p/tmp/lost");
    write("p/x.o");
    ASSERT_TRUE(options_.rules.exclude("tmp"));
    ASSERT_TRUE(options_.rules.exclude("*.o"));
    ASSERT_TRUE(options_.rules.exclude("p"));
    const auto told = walk({"p", "p/tmp/keep", "p/x.o"});
    EXPECT_EQ(told.lines, (Lines{"+p", "+p/tmp/keep", "+p/tmp/keep/file", "+p/x.o"}));
    EXPECT_TRUE(told.at("p/tmp").isPassage);
    EXPECT_EQ(told.at("p/tmp").leftOut, (Exclusion{Rule::pattern, "tmp"}));
    EXPECT_FALSE(told.at("p").leftOut);
}

TEST_F(TreeWalkTest, TakesOnlyWhatIsIncluded)
{
    for (const char* name : {"p/a.jpg", "p/a.txt", "p/docs/a.txt", "p/docs/deep/b", "p/x/c.jpg"})
        write(name);
    ASSERT_TRUE(options_.rules.include("*.jpg"));
    ASSERT_TRUE(options_.rules.include("docs/"));
    EXPECT_EQ(walk({"p"}).lines,
              (Lines{"+p", "+p/a.jpg", "-p/a.txt: not among what is included", "+p/docs",
                     "+p/docs/a.txt", "+p/docs/deep", "+p/docs/deep/b", "+p/x", "+p/x/c.jpg"}));
}

TEST_F(TreeWalkTest, LeavesHiddenItemsOut)
{
    write("p/.git/x");
    write("p/listed");
    write("p/.hidden", "listed\n");
    write("p/q/listed");
    options_.rules.skipsHidden = true;
    EXPECT_EQ(walk({"p"}).lines, (Lines{"+p", "-p/.git: hidden", "-p/.hidden: hidden",
                                        "-p/listed: hidden", "+p/q", "+p/q/listed"}));
}

TEST_F(TreeWalkTest, LeavesTaggedCachesOut)
{
    write("p/cache/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55\n");
    write("p/cache/x");
    write("p/cache/keep/x");
    write("p/other/CACHEDIR.TAG", "not one");
    ASSERT_EQ(::mkfifo(at("p/CACHEDIR.TAG").c_str(), 0600), 0);
    options_.rules.skipsCaches = true;
    EXPECT_EQ(walk({"p"}).lines, (Lines{"+p", "+p/CACHEDIR.TAG", "-p/cache: tagged as a cache",
                                        "+p/other", "+p/other/CACHEDIR.TAG"}));
    EXPECT_EQ(walk({"p/cache", "p"}).linesOf('-'), Lines{});
    EXPECT_EQ(walk({"p", "p/cache/keep"}).lines,
              (Lines{"+p", "+p/CACHEDIR.TAG", "+p/cache/keep", "+p/cache/keep/x", "+p/other",
                     "+p/other/CACHEDIR.TAG"}));
}

TEST_F(TreeWalkTest, LeavesItsOwnStateOutWhereverItMeetsIt)
{
    write("p/state/index");
    fs::create_directory_symlink("p/state", at("way"));
    options_.ownFolders = {at("way"), at("none")};
    EXPECT_EQ(walk({"p"}).lines, (Lines{"+p", "-p/state: keeps the state of backups"}));
    EXPECT_EQ(walk({"p/state"}).lines, (Lines{"-p/state: keeps the state of backups"}));
}

TEST_F(TreeWalkTest, LeavesPseudoFileSystemsOutUnlessTheyAreNamed)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    fs::create_directories(at("p/proc"));
    ASSERT_EQ(::mount("proc", at("p/proc").c_str(), "proc", 0, nullptr), 0);
    EXPECT_EQ(walk({"p"}).lines, (Lines{"+p", "-p/proc: shows the state of the system"}));
    EXPECT_EQ(walk({"p/proc/version"}).lines, (Lines{"+p/proc/version"}));
    ASSERT_TRUE(options_.rules.exclude("/*"));
    EXPECT_EQ(walk({"p/proc"}).linesOf('+'), (Lines{"+p/proc"}));
    ::umount2(at("p/proc").c_str(), MNT_DETACH);
}

TEST_F(TreeWalkTest, StaysOnOneFileSystemWhenAsked)
{
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason;
    const auto mount = test::Mount::memory(at("p/disk"));
    write("p/disk/x/file");
    write("p/y");
    EXPECT_EQ(walk({"p"}).lines, (Lines{"+p", "+p/disk", "+p/disk/x", "+p/disk/x/file", "+p/y"}));
    options_.rules.staysOnFileSystem = true;
    EXPECT_EQ(walk({"p"}).lines, (Lines{"+p", "-p/disk: on another file system", "+p/y"}));
    EXPECT_EQ(walk({"p", "p/disk/x"}).lines, (Lines{"+p", "+p/disk/x", "+p/disk/x/file", "+p/y"}));
}

TEST_F(TreeWalkTest, GivesTheContentOfAHardLinkToItsFirstNameInTheWalk)
{
    write("p/b", "x");
    for (const char* name : {"p/a", "p/c/d", "p/e"})
        (fs::create_directories(at(name).parent_path()), fs::create_hard_link(at("p/b"), at(name)));
    write("p/single");
    ASSERT_TRUE(options_.rules.exclude("a"));
    const auto told = walk({"p"});
    EXPECT_EQ(told.at("p/b").sameFileAs, "");
    EXPECT_EQ(told.at("p/c/d").sameFileAs, at("p/b"));
    EXPECT_EQ(told.at("p/e").sameFileAs, at("p/b"));
    EXPECT_EQ(told.at("p/single").sameFileAs, "");
    EXPECT_EQ(told.at("p/b").item.links, 4U);
}

TEST_F(TreeWalkTest, FailsEveryNameOfAFolderThatMayBeListedButNotEntered)
{
    for (const char* name : {"p/shut/1", "p/shut/2", "p/shut/3", "p/open"})
        write(name);
    fs::permissions(at("p/shut"), fs::perms(0444));
    fs::permissions(folder_.path(), fs::perms(0755));
    EXPECT_TRUE(asSomebody([&] {
        EXPECT_EQ(walk({"p"}).lines,
                  (Lines{"+p", "+p/open", "+p/shut", "!p/shut/1: Permission denied",
                         "!p/shut/2: Permission denied", "!p/shut/3: Permission denied"}));
    }));
}

TEST_F(TreeWalkTest, FailsAFolderThatCannotBeListedAndTakesWhatIsNamedInIt)
{
    write("p/dark/known");
    write("p/dark/other");
    write("p/shut/x");
    fs::permissions(at("p/dark"), fs::perms(0711));
    fs::permissions(at("p/shut"), fs::perms(0000));
    fs::permissions(folder_.path(), fs::perms(0755));
    EXPECT_TRUE(asSomebody([&] {
        const auto told = walk({"p", "p/dark/known", "p/shut/x"});
        EXPECT_EQ(told.lines,
                  (Lines{"!p/shut/x: Permission denied", "+p", "!p/dark: Permission denied",
                         "+p/dark/known", "!p/shut: Permission denied"}));
        EXPECT_FALSE(told.ends.at("p/dark").isComplete);
        EXPECT_TRUE(told.failures.at(1).isFolder);
    }));
}

TEST_F(TreeWalkTest, TellsWhatVanishesBetweenListingAndLooking)
{
    for (const char* name : {"p/a", "p/b", "p/c/x", "p/d"})
        write(name);
    const auto told = walk({"p"}, [&](const FoundItem& item) {
        if (item.item.path == at("p/a")) {
            fs::remove(at("p/b"));
            fs::remove_all(at("p/c"));
        }
    });
    EXPECT_EQ(told.lines, (Lines{"+p", "+p/a", "~p/b", "~p/c", "+p/d"}));
}

TEST_F(TreeWalkTest, FailsWhatIsNamedAndVanishesMeanwhile)
{
    for (const char* name : {"p/a", "p/b", "p/c/x", "q"})
        write(name);
    const auto told = walk({"p/a", "p/b", "p/c/x", "q"}, [&](const FoundItem& item) {
        if (item.item.path == at("p/a")) {
            fs::remove(at("p/b"));
            fs::remove_all(at("p/c"));
        }
    });
    EXPECT_EQ(told.lines, (Lines{"+p/a", "!p/b: No such file or directory",
                                 "!p/c/x: No such file or directory", "+q"}));
}

TEST_F(TreeWalkTest, NeverFollowsALinkThatTookTheNameOfAFolder)
{
    write("outside/secret");
    write("p/a");
    write("p/folder/x");
    const auto told = walk({"p"}, [&](const FoundItem& item) {
        if (item.item.path == at("p/a")) {
            fs::rename(at("p/folder"), at("moved"));
            fs::create_directory_symlink(at("outside"), at("p/folder"));
        }
    });
    EXPECT_EQ(told.lines, (Lines{"+p", "+p/a", "+p/folder"}));
    EXPECT_EQ(told.at("p/folder").item.kind, ItemKind::link);
}

TEST_F(TreeWalkTest, NeverTellsWhatIsOutsideWhileAFolderIsSwappedForALinkAllTheTime)
{
    write("outside/secret");
    write("p/folder/x");
    fs::create_directory_symlink(at("outside"), at("link"));
    const pid_t child = ::fork();
    if (child == 0) {
        for (;;)
            (void)::renameat2(AT_FDCWD, at("link").c_str(), AT_FDCWD, at("p/folder").c_str(),
                              RENAME_EXCHANGE);
    }
    std::size_t failed = 0;
    std::size_t folders = 0;
    for (int round = 0; round < 3000; ++round) {
        const auto told = walk({"p"});
        for (const std::string& path : told.items)
            ASSERT_EQ(path.find("secret"), std::string::npos);
        failed += told.failures.size();
        folders += told.items.size() == 3 ? 0 : 1;
        for (const auto& failure : told.failures)
            ASSERT_EQ(failure.reason, "it was replaced by something else while it was looked at");
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    RecordProperty("swapped between looking and opening", static_cast<int>(failed));
    EXPECT_GT(folders, 0U) << "nothing was ever swapped";
}

TEST_F(TreeWalkTest, GoesOnWhereItWasWhenAFolderIsMovedUnderItsFeet)
{
    write("p/a/b/1");
    write("p/a/b/2");
    write("p/a/z");
    write("p/q");
    const auto told = walk({"p"}, [&](const FoundItem& item) {
        if (item.item.path == at("p/a/b/1"))
            fs::rename(at("p/a/b"), at("moved"));
    });
    EXPECT_EQ(told.lines,
              (Lines{"+p", "+p/a", "+p/a/b", "+p/a/b/1", "+p/a/b/2", "+p/a/z", "+p/q"}));
}

class DeepTreeTest : public TreeWalkTest {
protected:
    /// Makes folders in each other, each with a file "f" and one "z", whose path is longer than any
    /// the system takes.
    void make(int depth) const
    {
        int folder = ::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY);
        for (int i = 0; i < depth; ++i) {
            ASSERT_EQ(::mkdirat(folder, name_.c_str(), 0700), 0);
            const int next = ::openat(folder, name_.c_str(), O_RDONLY | O_DIRECTORY);
            ::close(folder);
            folder = next;
            for (const char* file : {"f", "z"})
                ::close(::openat(folder, file, O_CREAT | O_WRONLY, 0600));
        }
        ::close(folder);
    }
    std::string name_ = std::string(60, 'n');
};

TEST_F(DeepTreeTest, PathsOfAnyLengthAreWalkedWithFewDescriptors)
{
    constexpr int depth = 300;
    make(depth);
    const rlimit limit{64, 64};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::size_t most = 0;
    std::size_t longest = 0;
    std::size_t found = 0;
    class Counter : public WalkObserver {
    public:
        explicit Counter(std::function<void(const FoundItem&)> take) : take_(std::move(take)) {}
        void found(FoundItem item) override { take_(item); }
        void excluded(const std::string&, ItemKind, const Exclusion&) override {}
        void failed(const WalkFailure& failure) override { ADD_FAILURE() << failure.reason; }
        void vanished(const std::string& path) override { ADD_FAILURE() << path; }
        void left(const FolderEnd&) override {}

    private:
        std::function<void(const FoundItem&)> take_;
    } counter([&](const FoundItem& item) {
        longest = std::max(longest, item.item.path.size());
        ++found;
        if (found % 50 == 0)
            most = std::max(most, test::openDescriptorCount());
        if (item.item.kind != ItemKind::file)
            return;
        int error = 0;
        EXPECT_TRUE(platform::SourceFile::open(item.folder->descriptor(),
                                               std::string(nameOf(item.item.path)), error));
    });
    options_.paths = {folder_.path()};
    const auto result = walkTree(options_, counter, stop_);
    EXPECT_EQ(result.found, 3U * depth + 1);
    EXPECT_EQ(result.failed, 0U);
    EXPECT_GT(longest, 3U * 4096);
    EXPECT_LT(most, 40U);
}

TEST_F(DeepTreeTest, FoldersThatWereClosedAreFoundAgainOrFailed)
{
    constexpr int depth = 40;
    make(depth);
    const auto folderAt = [&](int level) {
        std::string path;
        for (int i = 0; i < level; ++i)
            path += (i == 0 ? "" : "/") + name_;
        return path;
    };
    // While the walk is at the bottom, the folder at level 10 is moved away: those below it are
    // found by their own way up; the one above it only by the way from the top.
    const auto told = walk({""}, [&](const FoundItem& item) {
        if (item.item.path == at(folderAt(depth) + "/f"))
            fs::rename(at(folderAt(10)), at("moved"));
    });
    EXPECT_EQ(told.failures.size(), 0U);
    EXPECT_EQ(result_.found, 3U * depth + 1);
}

TEST_F(DeepTreeTest, WhatCannotBeFoundAgainIsFailedNameByName)
{
    constexpr int depth = 40;
    make(depth);
    std::string tenth = name_;
    for (int i = 1; i < 10; ++i)
        tenth += "/" + name_;
    std::string bottom = at(tenth);
    for (int i = 10; i < depth; ++i)
        bottom += "/" + name_;
    bottom += "/f";
    const auto told = walk({""}, [&](const FoundItem& item) {
        if (item.item.path == bottom) {
            fs::rename(at(tenth + "/" + name_), at("aside"));
            fs::rename(at(tenth), at("moved"));
            fs::create_directory(at(tenth));
        }
    });
    EXPECT_EQ(told.linesOf('!'),
              (Lines{"!" + tenth + "/z: its folder was moved away while it was looked at"}));
}

TEST_F(TreeWalkTest, StopsWhenAskedTo)
{
    for (int i = 0; i < 100; ++i)
        write("p/" + std::to_string(i));
    const auto told = walk({"p", "q"}, [&](const FoundItem& item) {
        if (item.item.path == at("p/10"))
            stop_.request();
    });
    EXPECT_TRUE(result_.isStopped);
    EXPECT_EQ(told.linesOf('+').back(), "+p/10");
}

TEST_F(TreeWalkTest, WalksAFolderWithAHundredThousandEntries)
{
    constexpr int count = 100'000;
    fs::create_directory(at("p"));
    if (const auto reason = test::enterMountNamespace())
        GTEST_SKIP() << *reason; // on a disk most of the time would go into making them
    const auto memory = test::Mount::memory(at("p"));
    const int folder = ::open(at("p").c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < count; ++i)
        ::close(::openat(folder, std::to_string(i).c_str(), O_CREAT | O_WRONLY, 0600));
    ::close(folder);
    const auto told = walk({"p"});
    EXPECT_EQ(result_.found, count + 1U);
    EXPECT_EQ(told.ends.at("p").names, static_cast<std::uint64_t>(count));
}

/// Random trees under random rules: every name on disk that lies in no excluded folder is told
/// exactly once.
TEST_F(TreeWalkTest, AccountsForEveryNameOfAnyTree)
{
    std::mt19937 random(5);
    const std::string bytes = "ab.-\x01\xff ";
    const auto randomName = [&] {
        std::string name;
        for (auto length = 1 + random() % 3; length > 0; --length)
            name += bytes[random() % bytes.size()];
        return name == "." || name == ".." ? std::string("dot") : name;
    };
    for (int round = 0; round < 25; ++round) {
        const fs::path top = at("t" + std::to_string(round));
        std::vector<fs::path> folders{top};
        fs::create_directory(top);
        for (int i = 0; i < 60; ++i) {
            const fs::path path = folders[random() % folders.size()] / randomName();
            std::error_code taken;
            if (fs::exists(fs::symlink_status(path, taken)))
                continue;
            if (random() % 3 == 0) {
                fs::create_directory(path);
                folders.push_back(path);
            } else if (random() % 4 == 0) {
                fs::create_symlink("x", path);
            } else {
                std::ofstream(path) << "x";
            }
        }
        options_.rules = {};
        for (int i = 0; i < 2; ++i)
            (void)options_.rules.exclude(randomName() + (random() % 2 == 0 ? "/" : ""));
        options_.rules.skipsHidden = random() % 2 == 0;
        const auto told = walk({top});
        std::multiset<std::string> toldPaths;
        std::set<std::string> excluded;
        for (const std::string& line : told.lines) {
            const auto path = line.substr(1, line.find(": ") - 1);
            toldPaths.insert(path);
            if (line[0] == '-')
                excluded.insert(path);
        }
        std::multiset<std::string> onDisk{top.filename()};
        for (auto entry = fs::recursive_directory_iterator(top);
             entry != fs::recursive_directory_iterator(); ++entry) {
            const auto path = entry->path().string().substr(folder_.path().native().size() + 1);
            onDisk.insert(path);
            if (excluded.contains(path))
                entry.disable_recursion_pending();
        }
        ASSERT_EQ(toldPaths, onDisk) << "round " << round;
    }
}

} // namespace
} // namespace stowline::backup
