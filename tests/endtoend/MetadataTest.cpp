// What is known of an item besides its content: when it counts as changed, and that it is given
// back as it was last.
#include "tests/endtoend/BackedUp.h"
#include "tests/support/EveryKindOfItem.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline {
namespace {

namespace fs = std::filesystem;
using test::BackedUp;
using test::field;
using test::noise;
using test::setTime;
using test::Words;

/// Waits until what was written before is no longer read again for its date alone.
void settle()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
}

std::string differences(const fs::path& one, const fs::path& other)
{
    const auto rsync =
        test::runProgram({{"/usr/bin/rsync", "-n", "-aHAX", "--checksum", "--itemize-changes",
                           "--delete", one.string() + "/", other.string() + "/"}});
    EXPECT_EQ(rsync.status, 0) << rsync.errors;
    return rsync.output;
}

void makeSocketAndDevice(const fs::path& folder)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder / "socket";
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(socket);
    ASSERT_EQ(::mknod((folder / "device").c_str(), S_IFCHR | 0620, makedev(1, 3)), 0);
}

/// Everything about items but what they hold.
void changeOnlyMetadata(const fs::path& tree)
{
    ASSERT_EQ(::chmod((tree / "deep/read-only").c_str(), 0640), 0);
    setTime(tree / "empty", 1111111111, 987654321);
    ASSERT_EQ(::setxattr((tree / "holes").c_str(), "user.new", "value", 5, 0), 0);
    ASSERT_EQ(::removexattr((tree / "plain").c_str(), "user.note"), 0);
    ASSERT_EQ(::lchown((tree / "odd \xff\x01\n\"name").c_str(), 77, 88), 0);
    fs::remove(tree / "deep/link");
    fs::create_symlink("../elsewhere", tree / "deep/link");
    std::ofstream(tree / "deep/er/large", std::ios::binary) << noise(450000, 1); // the same again
    ASSERT_EQ(::chmod((tree / "empty folder").c_str(), 0711), 0);
    setTime(tree / "empty folder", 1222222222, 1);
    ASSERT_EQ(::removexattr((tree / "deep").c_str(), "user.folder"), 0);
    setTime(tree / "deep", 1333333333, 999999999);
    ASSERT_EQ(::chmod((tree / "pipe").c_str(), 0604), 0);
    ASSERT_EQ(::chmod((tree / "device").c_str(), 0602), 0);
    ASSERT_EQ(::lchown((tree / "socket").c_str(), 77, 88), 0);
}

TEST(Metadata, OfWhatHoldsTheSameIsGivenBackAsItWasLast)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give items to other users and make devices";
    const BackedUp account;
    test::makeTree(account.folder, ".", noise(450000, 1));
    const fs::path tree = account.folder.path();
    const char* attribute = "user.note";
    if (::getxattr((tree / "plain").c_str(), attribute, nullptr, 0) < 0)
        GTEST_SKIP() << "the file system of the tests keeps no extended attributes";
    makeSocketAndDevice(tree);
    settle();
    const auto first = account.backup();
    ASSERT_EQ(first.status, 0) << first.errors;
    EXPECT_EQ(field(first, "stored"), 7);
    // Four folders, two links, two further names, a pipe, a socket and a device.
    EXPECT_EQ(field(first, "recorded"), 11) << first.output;
    EXPECT_EQ(field(first, "found"), 18);

    changeOnlyMetadata(tree);
    const fs::path back = account.command.home().path() / "back";
    const fs::path index = account.command.home().path() / ".local/state/stowline/index";
    for (const bool isIndexThere : {true, false}) {
        if (!isIndexThere)
            fs::remove_all(index);
        const auto result = account.backup();
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(field(result, "stored"), 0) << result.output;
        EXPECT_EQ(field(result, "unchanged"), 7);
        EXPECT_EQ(field(result, "recorded"), 11);
        EXPECT_EQ(field(result, "found"), 18);
        const auto restored =
            account.run({"restore", tree, "--machine", "iMac", "--to", back.string(), "--devices"});
        EXPECT_EQ(restored.status, 0) << restored.errors;
        EXPECT_EQ(differences(tree, back / tree.filename()), "");
        fs::remove_all(back);
    }
}

/// The states that a run names for files, by name.
std::map<std::string, std::string> statesOf(const test::ProgramResult& result)
{
    std::map<std::string, std::string> states;
    for (const auto& line : test::jsonLines(result.output)) {
        if (line.contains("path") && line.contains("state"))
            states.emplace(fs::path(line["path"].get<std::string>()).filename(), line["state"]);
    }
    return states;
}

/// Of file systems whose stamps or numbers lie.
TEST(Metadata, ThatTheUserDoesNotTrustMakesNothingChanged)
{
    const BackedUp account;
    account.write({{"rewritten", "one state"}, {"replaced", "one state"}, {"other", "rests"}});
    const fs::path folder = account.folder.path();
    settle();
    const Words ctime{"--profile", "ctime", "--ignore-ctime"};
    const Words inode{"--profile", "inode", "--ignore-inode"};
    const Words both{"--profile", "both", "--ignore-ctime", "--ignore-inode"};
    for (const Words& options : {Words(), ctime, inode, both})
        ASSERT_EQ(account.backup(options).status, 0);

    const auto date = fs::last_write_time(folder / "rewritten");
    std::fstream(folder / "rewritten", std::ios::in | std::ios::out) << "the other"; // of one size
    fs::last_write_time(folder / "rewritten", date);
    account.write({{"new", "the other"}});
    fs::last_write_time(folder / "new", fs::last_write_time(folder / "replaced"));
    fs::rename(folder / "new", folder / "replaced");

    const auto expect = [&](const Words& options, const char* rewritten, const char* replaced) {
        const auto result = account.backup(options);
        EXPECT_EQ(result.status, 0) << result.errors;
        const auto states = statesOf(result);
        EXPECT_EQ(states.at("rewritten"), rewritten) << result.output;
        EXPECT_EQ(states.at("replaced"), replaced) << result.output;
        EXPECT_EQ(states.at("other"), "unchanged") << result.output;
    };
    expect(ctime, "unchanged", "stored");
    expect(both, "unchanged", "unchanged");
    expect(inode, "stored", "stored");
    expect({}, "stored", "stored");
}

/// cap_net_raw=ep, as the system keeps it (capabilities(7), version 2 of the attribute).
const std::string kCapabilities("\x01\0\0\x02\0\x20\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);

std::string capabilitiesOf(const fs::path& file)
{
    std::string value(100, '\0');
    const ssize_t size =
        ::getxattr(file.c_str(), "security.capability", value.data(), value.size());
    return value.substr(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
}

/// Folders in which another user finds settings and has a home.
fs::path homeOfNobody(const BackedUp& account)
{
    const fs::path home = account.command.home().path() / "nobody";
    fs::create_directories(home);
    EXPECT_EQ(::chown(home.c_str(), 65534, 65534), 0);
    const fs::path bundle = account.server.bundle();
    for (const fs::path& folder : {account.command.home().path(), bundle.parent_path(), bundle})
        fs::permissions(folder, fs::perms::all);
    for (const auto& entry : fs::recursive_directory_iterator(bundle))
        fs::permissions(entry, fs::perms::all);
    return home;
}

TEST(Metadata, OfPrivilegesComesBackWithTheOwnerAlone)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give programs capabilities";
    const BackedUp account;
    account.write({{"tool", "program"}});
    const fs::path tool = account.folder.path() / "tool";
    ASSERT_EQ(::chown(tool.c_str(), 1234, 4321), 0);
    ASSERT_EQ(::chmod(tool.c_str(), 06755), 0);
    if (::setxattr(tool.c_str(), "security.capability", kCapabilities.data(), kCapabilities.size(),
                   0) != 0)
        GTEST_SKIP() << "the file system of the tests keeps no capabilities";
    ASSERT_EQ(account.backup().status, 0);
    const fs::path home = homeOfNobody(account);
    const auto restoreBy = [&](const Words& whose, const fs::path& target, bool isNobody = false) {
        auto run = account.command.run(
            {"restore", account.folder.path(), "--machine", "iMac", "--to", target.string()},
            account.environment());
        if (isNobody)
            run.environment["HOME"] = home;
        run.words.insert(run.words.begin(), whose.begin(), whose.end());
        return test::runProgram(run);
    };
    const auto toolIn = [&](const fs::path& target) {
        return target / account.folder.path().filename() / "tool";
    };
    const auto modeOf = [](const fs::path& file) {
        struct stat status {};
        EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
        return status.st_mode & 07777U;
    };

    const auto byRoot = restoreBy({}, home / "root's");
    EXPECT_EQ(byRoot.status, 0) << byRoot.errors;
    EXPECT_EQ(capabilitiesOf(toolIn(home / "root's")), kCapabilities);
    EXPECT_EQ(modeOf(toolIn(home / "root's")), 06755U);

    const std::string sentence = "capabilities are dropped, since it has a different owner";
    const auto byNobody =
        restoreBy({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"},
                  home / "own", true);
    EXPECT_EQ(byNobody.status, 0) << byNobody.errors;
    EXPECT_NE(byNobody.errors.find(sentence), std::string::npos) << byNobody.errors;
    EXPECT_EQ(capabilitiesOf(toolIn(home / "own")), "");
    EXPECT_EQ(modeOf(toolIn(home / "own")), 0755U);

    // One who might set them, but may not give files away.
    const auto byHalf =
        restoreBy({"/usr/bin/setpriv", "--bounding-set", "-chown"}, home / "half root's");
    EXPECT_EQ(byHalf.status, 3) << byHalf.errors;
    EXPECT_NE(byHalf.errors.find(sentence), std::string::npos) << byHalf.errors;
    EXPECT_EQ(capabilitiesOf(toolIn(home / "half root's")), "");
    EXPECT_EQ(modeOf(toolIn(home / "half root's")), 0755U);
}

TEST(Metadata, OfDevicesComesBackWhenTheyAreAskedFor)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make devices";
    const BackedUp account;
    account.write({{"a", "1"}});
    const fs::path device = account.folder.path() / "device";
    ASSERT_EQ(::mknod(device.c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    ASSERT_EQ(::chmod(device.c_str(), 0620), 0);
    ASSERT_EQ(account.backup().status, 0);
    const fs::path back = account.command.home().path() / "back";
    const fs::path restoredDevice = back / account.folder.path().filename() / "device";
    const auto restore = [&](const Words& more) {
        Words words{"restore", account.folder.path(), "--machine", "iMac", "--to", back.string()};
        words.insert(words.end(), more.begin(), more.end());
        return account.run(words);
    };
    const auto without = restore({});
    EXPECT_EQ(without.status, 0) << without.errors;
    EXPECT_NE(without.errors.find("device"), std::string::npos) << without.errors;
    EXPECT_FALSE(fs::exists(restoredDevice));
    EXPECT_TRUE(fs::exists(back / account.folder.path().filename() / "a"));
    const auto with = restore({"--devices"});
    EXPECT_EQ(with.status, 0) << with.errors;
    struct stat status {};
    ASSERT_EQ(::stat(restoredDevice.c_str(), &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(status.st_rdev, makedev(1, 3));
    EXPECT_EQ(status.st_mode & 07777U, 0620U);
}

} // namespace
} // namespace stowline
