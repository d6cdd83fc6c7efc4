#include "stowline/platform/processes/NurseryConditions.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/BuildIdentity.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <sched.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

extern char** environ; // NOLINT: the platform's name

namespace stowline::platform {

namespace {

/// Lines of /proc/…/status (proc(5)) that a child inherits.
constexpr std::array<std::string_view, 14> kInherited{
    "Umask:",        "Uid:",         "Gid:",    "Groups:",     "CapInh:",  "CapPrm:",
    "CapEff:",       "CapBnd:",      "CapAmb:", "NoNewPrivs:", "Seccomp:", "Seccomp_filters:",
    "Cpus_allowed:", "Mems_allowed:"};

constexpr std::array<const char*, 8> kNamespaces{"cgroup", "ipc",  "mnt",  "net",
                                                 "pid",    "time", "user", "uts"};

/// Files that decide what a call does, beside those that the environment names.
constexpr std::array<const char*, 10> kDecidingFiles{
    "/etc/localtime",
    "/etc/ssl/certs",
    "/etc/ssl/certs/ca-certificates.crt",
    "/etc/ssl/openssl.cnf",
    "/etc/ld.so.cache",
    "/etc/pki/tls/certs",
    "/etc/pki/tls/certs/ca-bundle.crt",
    "/etc/ssl/ca-bundle.pem",
    "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",
    "/etc/ssl/cert.pem"};
constexpr std::array<const char*, 4> kDecidingVariables{"SSL_CERT_FILE", "SSL_CERT_DIR",
                                                        "OPENSSL_CONF", "TZDIR"};

/// Text of numbers that are compared with another such text.
class Fingerprint {
public:
    void add(std::string_view words) { text_.append(words).push_back('\n'); }
    void add(std::uint64_t number) { add(std::to_string(number)); }
    /// Which file it is; when it was changed where that counts. @return whether it is there
    bool addFile(const char* path, bool asItWas)
    {
        struct stat status {};
        if (::stat(path, &status) != 0) {
            add("-");
            return false;
        }
        add(status.st_dev);
        add(status.st_ino);
        if (!asItWas)
            return true;
        add(static_cast<std::uint64_t>(status.st_size));
        for (const timespec& time : {status.st_mtim, status.st_ctim}) {
            add(static_cast<std::uint64_t>(time.tv_sec));
            add(static_cast<std::uint64_t>(time.tv_nsec));
        }
        return true;
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    std::string text_;
};

/// @return whether the system told
bool addThread(Fingerprint& print)
{
    const auto status = readFile("/proc/thread-self/status");
    if (!status)
        return false;
    std::string_view rest = *status;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        for (const std::string_view name : kInherited) {
            if (line.starts_with(name))
                print.add(line);
        }
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    for (const char* name : kNamespaces) {
        const std::string path = std::string("/proc/thread-self/ns/") + name;
        if (!print.addFile(path.c_str(), false) && std::string_view(name) != "time")
            return false;
    }
    return print.addFile("/", false) && print.addFile(".", false);
}

/// Whether children belong to another process namespace than this process: the first of them
/// would be its init.
bool hasOtherProcessesBelow()
{
    struct stat own {};
    struct stat below {};
    return ::stat("/proc/thread-self/ns/pid", &own) != 0 ||
           ::stat("/proc/thread-self/ns/pid_for_children", &below) != 0 ||
           own.st_ino != below.st_ino;
}

void addProcess(Fingerprint& print)
{
    for (int resource = 0; resource < RLIM_NLIMITS; ++resource) {
        rlimit limit{};
        ::getrlimit(static_cast<__rlimit_resource_t>(resource), &limit);
        print.add(limit.rlim_cur);
        print.add(limit.rlim_max);
    }
    constexpr int ioPriorityOfProcess = 1; // IOPRIO_WHO_PROCESS, ioprio_get(2)
    for (const long number :
         {static_cast<long>(::getpriority(PRIO_PROCESS, 0)), static_cast<long>(::getpgrp()),
          static_cast<long>(::getsid(0)), static_cast<long>(::sched_getscheduler(0)),
          ::syscall(SYS_ioprio_get, ioPriorityOfProcess, 0)})
        print.add(static_cast<std::uint64_t>(number));
    for (char** variable = environ; variable && *variable; ++variable)
        print.add(*variable);
}

/// Where a program finds what it says of itself: beside it, or in the bundle whose Contents/MacOS/
/// it lies in.
void addOwnDescription(Fingerprint& print, const std::filesystem::path& program)
{
    const auto folder = program.parent_path();
    for (const auto& place : {folder, folder.parent_path()})
        print.addFile((place / "Info.plist").c_str(), true);
}

void addDecidingFiles(Fingerprint& print)
{
    for (const char* path : kDecidingFiles)
        print.addFile(path, true);
    for (const char* name : kDecidingVariables) {
        if (const char* path = std::getenv(name))
            print.addFile(path, true);
    }
}

bool takesInOrphans()
{
    int isReaper = 0;
    return ::getpid() == 1 || ::prctl(PR_GET_CHILD_SUBREAPER, &isReaper) != 0 || isReaper != 0;
}

/// Whether a program's file is of this build, remembered for the file as it is.
bool isOfThisBuild(const std::string& program, const std::string& file)
{
    static ForkSafeMutex mutex;
    static std::string known; // NOLINT: under the lock
    const std::string asked = program + "\n" + file;
    {
        const std::lock_guard lock(mutex);
        if (known == asked)
            return true;
    }
    if (buildIdentityOfProgram(program) != buildIdentity())
        return false;
    const std::lock_guard lock(mutex);
    known = asked;
    return true;
}

} // namespace

Outcome<std::string, NoNursery> nurseryConditions(const std::string& program)
{
    Fingerprint file;
    if (!file.addFile(program.c_str(), true))
        return NoNursery{"the program is missing"};
    const std::string programFile = file.take();
    if (!isOfThisBuild(program, programFile))
        return NoNursery{"the program is of another build"};
    if (takesInOrphans())
        return NoNursery{"this process takes in what others leave behind"};
    Fingerprint print;
    print.add(program);
    print.add(programFile);
    if (!addThread(print))
        return NoNursery{"/proc does not tell about this process"};
    if (hasOtherProcessesBelow())
        return NoNursery{"children of this process belong to another namespace"};
    addProcess(print);
    addOwnDescription(print, program);
    addDecidingFiles(print);
    return print.take();
}

} // namespace stowline::platform
