// Changes of a host after which a child of the old nursery would not be what a helper started now
// is.
#include "stowline/service/NurseryTest.h"

#include "tests/support/MountNamespace.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/SystemCallFilter.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <linux/capability.h>
#include <linux/sched.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>

namespace stowline {
namespace {

using test::Caller;
using test::nursery;
using test::RawServer;
using test::until;

/// @return whether it could be made here
struct Change {
    const char* name;
    std::function<bool()> make;
    bool isServerReachable = true; ///< afterwards
};

std::ostream& operator<<(std::ostream& stream, const Change& change)
{
    return stream << change.name;
}

/// A word that a process and its children share.
class SharedWord {
public:
    SharedWord()
        : word_(static_cast<int*>(::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE,
                                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    SharedWord(const SharedWord&) = delete;
    SharedWord& operator=(const SharedWord&) = delete;
    ~SharedWord() { ::munmap(word_, sizeof(int)); }
    int& operator*() const { return *word_; }

private:
    int* const word_;
};

/// Calls until this process has one nursery, and that is another one than before.
void expectAnother(int before, bool isServerReachable = true)
{
    EXPECT_EQ(Caller::works(), isServerReachable);
    until([] { return test::nurseriesOf(::getpid()).size() == 1; });
    EXPECT_NE(nursery(), before);
}

class ChangedHost : public testing::TestWithParam<Change> {};

TEST_P(ChangedHost, BeginsAnotherNursery)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    const SharedWord isMade;
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
        ASSERT_TRUE(Caller::works());
        const int first = nursery();
        ASSERT_NE(first, 0);
        EXPECT_TRUE(Caller::works());
        ASSERT_EQ(nursery(), first);
        *isMade = GetParam().make() ? 1 : 0;
        if (*isMade != 0)
            expectAnother(first, GetParam().isServerReachable);
    }));
    if (*isMade == 0)
        GTEST_SKIP() << "This user may not change that here.";
}

bool lowersLimit(__rlimit_resource_t resource)
{
    rlimit limit{};
    constexpr rlim_t much = rlim_t(1) << 40;
    if (::getrlimit(resource, &limit) != 0 || limit.rlim_cur == 0)
        return false;
    limit.rlim_cur = std::min(limit.rlim_cur, much) - 1;
    return ::setrlimit(resource, &limit) == 0;
}

/// Of whichever resource has one above the limit that holds.
bool lowersAHardLimit()
{
    for (int number = 0; number < RLIM_NLIMITS; ++number) {
        const auto resource = static_cast<__rlimit_resource_t>(number);
        rlimit limit{};
        if (::getrlimit(resource, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
            limit.rlim_max = limit.rlim_max == RLIM_INFINITY
                                 ? std::max(limit.rlim_cur, rlim_t(1) << 40)
                                 : limit.rlim_max - 1;
            return ::setrlimit(resource, &limit) == 0;
        }
    }
    return false;
}

/// Sets of capabilities, each without its last one, or with one of the permitted ones.
bool changesCapabilities(const std::function<void(__user_cap_data_struct&)>& change)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> sets{};
    if (::syscall(SYS_capget, &header, sets.data()) != 0)
        return false;
    const auto before = sets[0];
    change(sets[0]);
    return (before.effective != sets[0].effective || before.inheritable != sets[0].inheritable) &&
           ::syscall(SYS_capset, &header, sets.data()) == 0;
}

constexpr std::uint32_t kOwnerOverride = 1U << CAP_FOWNER;

bool leavesAProcessor()
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    if (::sched_getaffinity(0, sizeof processors, &processors) != 0 || CPU_COUNT(&processors) < 2)
        return false;
    for (std::size_t number = 0; number < CPU_SETSIZE; ++number) {
        if (CPU_ISSET(number, &processors)) {
            CPU_CLR(number, &processors);
            break;
        }
    }
    return ::sched_setaffinity(0, sizeof processors, &processors) == 0;
}

bool leavesTheNetwork()
{
    if (test::enterNetworkNamespace())
        return false;
    test::ip("link set lo up");
    return true;
}

bool isIdleForDisks()
{
    constexpr int ofProcess = 1;        // ioprio_set(2)
    constexpr int last = (2 << 13) | 7; // best effort, the last of it
    return ::syscall(SYS_ioprio_set, ofProcess, 0, last) == 0;
}

bool isOfABatch()
{
    const sched_param none{};
    return ::sched_setscheduler(0, SCHED_BATCH, &none) == 0;
}

bool hasOneGroupMore()
{
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
    groups.resize(std::max(0, ::getgroups(static_cast<int>(groups.size()), groups.data())));
    groups.push_back(54321);
    return ::setgroups(groups.size(), groups.data()) == 0;
}

constexpr auto kUnchangedId = static_cast<uid_t>(-1);

INSTANTIATE_TEST_SUITE_P(
    Changes, ChangedHost,
    testing::Values(
        Change{"Environment", [] { return ::setenv("STOWLINE_TEST", "1", 1) == 0; }},
        Change{"TimeZone", [] { return ::setenv("TZ", "Asia/Tokyo", 1) == 0; }},
        Change{"Locale", [] { return ::setenv("LC_ALL", "C", 1) == 0; }},
        Change{"Folder", [] { return ::chdir("/") == 0; }},
        Change{"Umask", [] { return ::umask(0123) != 0123; }},
        Change{"LimitOfFileSize", [] { return lowersLimit(RLIMIT_FSIZE); }},
        Change{"LimitOfFiles", [] { return lowersLimit(RLIMIT_NOFILE); }},
        Change{"HardLimit", lowersAHardLimit}, Change{"Niceness", [] { return ::nice(1) != -1; }},
        Change{"Scheduler", isOfABatch}, Change{"DiskPriority", isIdleForDisks},
        Change{"Processors", leavesAProcessor}, Change{"Session", [] { return ::setsid() > 0; }},
        Change{"ProcessGroup", [] { return ::setpgid(0, 0) == 0; }},
        Change{"User", [] { return ::setresuid(kUnchangedId, kUnchangedId, 65534) == 0; }},
        Change{"Group", [] { return ::setgid(65534) == 0; }}, Change{"Groups", hasOneGroupMore},
        Change{"EffectiveRights",
               [] {
                   return changesCapabilities(
                       [](auto& sets) { sets.effective &= ~kOwnerOverride; });
               }},
        Change{"InheritableRights",
               [] {
                   return changesCapabilities(
                       [](auto& sets) { sets.inheritable ^= kOwnerOverride; });
               }},
        Change{"PossibleRights", [] { return ::prctl(PR_CAPBSET_DROP, CAP_SYS_BOOT) == 0; }},
        Change{"NoNewRights", [] { return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0; }},
        Change{"NameOfTheMachine", [] { return ::unshare(CLONE_NEWUTS) == 0; }},
        Change{"Mounts", [] { return ::unshare(CLONE_NEWNS) == 0; }},
        Change{"SharedMemory", [] { return ::unshare(CLONE_NEWIPC) == 0; }},
        Change{"ControlGroups", [] { return ::unshare(CLONE_NEWCGROUP) == 0; }},
        Change{"Network", leavesTheNetwork, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(ChangedFiles, BeginAnotherNursery)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    const SharedWord isMade;
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
        if (test::enterMountNamespace())
            return;
        *isMade = 1;
        const auto etc = test::Mount::memory("/etc");
        ASSERT_TRUE(Caller::works());
        for (const char* file : {"localtime", "ssl/certs/new", "ssl/certs/ca-certificates.crt",
                                 "ssl/openssl.cnf", "ld.so.cache", "pki/tls/certs/new",
                                 "pki/tls/certs/ca-bundle.crt", "ssl/ca-bundle.pem",
                                 "pki/ca-trust/extracted/pem/tls-ca-bundle.pem", "ssl/cert.pem"}) {
            SCOPED_TRACE(file);
            const auto path = std::filesystem::path("/etc") / file;
            std::filesystem::create_directories(path.parent_path());
            std::ofstream(path) << "";
            EXPECT_TRUE(Caller::works());
            until([] { return test::nurseriesOf(::getpid()).size() == 1; });
            const int before = nursery();
            std::ofstream(path) << "#";
            if (path.filename() == "new") // what is in a folder counts by the folder's time
                std::filesystem::remove(path);
            expectAnother(before);
        }
    }));
    if (*isMade == 0)
        GTEST_SKIP() << "This user has no mounts of its own.";
}

TEST(ChangedFiles, NamedByVariablesBeginAnotherNursery)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    for (const char* variable : {"SSL_CERT_FILE", "SSL_CERT_DIR", "OPENSSL_CONF", "TZDIR"}) {
        SCOPED_TRACE(variable);
        const bool isFolder = std::string_view(variable).ends_with("DIR");
        const auto path = caller.bundle().folder().path() / variable;
        const auto inside = isFolder ? path / "one" : path;
        std::filesystem::create_directories(inside.parent_path());
        std::ofstream(inside) << "#1\n";
        ::setenv(variable, path.c_str(), 1);
        EXPECT_TRUE(Caller::works());
        until([] { return test::nurseriesOf(::getpid()).size() == 1; });
        const int before = nursery();
        if (isFolder) {
            std::ofstream(path / "two") << "#2\n";
        } else { // the same size, and said to be as old
            struct stat was {};
            ASSERT_EQ(::stat(path.c_str(), &was), 0);
            std::ofstream(path) << "#2\n";
            const std::array<timespec, 2> times{was.st_atim, was.st_mtim};
            ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
        }
        expectAnother(before);
        ::unsetenv(variable);
    }
}

TEST(ChangedThread, IsServedByWhatIsLikeItself)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    ASSERT_TRUE(Caller::works());
    bool isElsewhere = false;
    std::thread([&] {
        isElsewhere = leavesTheNetwork();
        EXPECT_NE(Caller::works(), isElsewhere);
    }).join();
    if (!isElsewhere)
        GTEST_SKIP() << "This user has no networks of its own.";
    EXPECT_EQ(server.requests().size(), 1U);
    EXPECT_TRUE(Caller::works());
}

TEST(OtherProcesses, OfAHostWhoseChildrenLiveElsewhereAreStartedAlone)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    const SharedWord isMade;
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
        if (::unshare(CLONE_NEWPID) != 0)
            return;
        *isMade = 1;
        EXPECT_TRUE(Caller::works()); // once: with the first child the others' world ends
        EXPECT_EQ(nursery(), 0);
        EXPECT_FALSE(test::hasChildren());
        EXPECT_EQ(caller.aloneLines(), 1U);
    }));
    if (*isMade == 0)
        GTEST_SKIP() << "This user has no processes of its own.";
}

TEST(OtherProcesses, OfTheFirstProcessAreStartedAlone)
{
    const RawServer server(test::soapAnswer("<a>x</a>"));
    const Caller caller(server.url());
    const SharedWord isMade;
    EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
        if (test::enterMountNamespace() || ::unshare(CLONE_NEWPID) != 0)
            return;
        EXPECT_TRUE(test::holdsInAProcessOfItsOwn([&] {
            if (::getpid() != 1 || ::mount("proc", "/proc", "proc", 0, nullptr) != 0)
                return;
            *isMade = 1;
            for (int i = 0; i < 3; ++i)
                EXPECT_TRUE(Caller::works());
            EXPECT_EQ(nursery(), 0);
            EXPECT_FALSE(test::hasChildren());
        }));
    }));
    if (*isMade == 0)
        GTEST_SKIP() << "This user has no processes of its own.";
}

} // namespace
} // namespace stowline
