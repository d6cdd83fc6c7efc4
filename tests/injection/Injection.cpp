#include "tests/injection/Injection.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <string_view>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

/// What is armed: a name that outlives the arming, so that threads may compare it at any time.
std::atomic<const char*> armedFunction{nullptr};
std::atomic<std::size_t> armedCall{0};
std::atomic<bool> isPersistent{false};
std::atomic<std::size_t> calls{0};
std::atomic<std::size_t> failures{0};
std::atomic<void (*)(std::size_t)> eachCall{nullptr};

/// The most calls that a process has counted that was told by its environment, or that one has whom
/// it forked: in memory that they share with a file, however they end.
std::atomic<std::size_t>* mostCalls = nullptr;

/// Whether this call of a function is to fail.
bool fails(const char* function)
{
    const char* armed = armedFunction.load();
    if (!armed || std::strcmp(armed, function) != 0)
        return false;
    const std::size_t call = ++calls;
    if (mostCalls) {
        for (std::size_t most = *mostCalls;
             most < call && !mostCalls->compare_exchange_weak(most, call);) {
        }
    }
    if (auto* callee = eachCall.load())
        callee(call);
    if (call < armedCall.load() || (call > armedCall.load() && !isPersistent.load()))
        return false;
    ++failures;
    return true;
}

/// The function of this name that comes after the one defined here.
template <typename Function> Function* real(Function* /*type*/, const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

// NOLINTBEGIN: the C library's names and declarations
// Each fails with the error that the system gives for it most easily.
#define STOWLINE_FALLIBLE(NAME, RESULT, FAILED, ERROR, PARAMETERS, ARGUMENTS)                      \
    extern "C" RESULT NAME PARAMETERS                                                              \
    {                                                                                              \
        static const auto next = real(&NAME, #NAME);                                               \
        if (fails(#NAME)) {                                                                        \
            errno = ERROR;                                                                         \
            return FAILED;                                                                         \
        }                                                                                          \
        return next ARGUMENTS;                                                                     \
    }

using Bytes = std::size_t;
// Files.
STOWLINE_FALLIBLE(read, ssize_t, -1, EIO, (int file, void* to, Bytes size), (file, to, size))
STOWLINE_FALLIBLE(pread, ssize_t, -1, EIO, (int file, void* to, Bytes size, off_t at),
                  (file, to, size, at))
STOWLINE_FALLIBLE(pread64, ssize_t, -1, EIO, (int file, void* to, Bytes size, off_t at),
                  (file, to, size, at))
STOWLINE_FALLIBLE(write, ssize_t, -1, ENOSPC, (int file, const void* from, Bytes size),
                  (file, from, size))
STOWLINE_FALLIBLE(writev, ssize_t, -1, ENOSPC, (int file, const iovec* pieces, int count),
                  (file, pieces, count))
STOWLINE_FALLIBLE(pwrite, ssize_t, -1, ENOSPC, (int file, const void* from, Bytes size, off_t at),
                  (file, from, size, at))
STOWLINE_FALLIBLE(pwrite64, ssize_t, -1, ENOSPC, (int file, const void* from, Bytes size, off_t at),
                  (file, from, size, at))
STOWLINE_FALLIBLE(copy_file_range, ssize_t, -1, EIO,
                  (int from, off_t* fromAt, int to, off_t* toAt, Bytes size, unsigned flags),
                  (from, fromAt, to, toAt, size, flags))
STOWLINE_FALLIBLE(lseek, off_t, -1, EINVAL, (int file, off_t at, int whence) noexcept,
                  (file, at, whence))
STOWLINE_FALLIBLE(fsync, int, -1, EIO, (int file), (file))
STOWLINE_FALLIBLE(fdatasync, int, -1, EIO, (int file), (file))
STOWLINE_FALLIBLE(ftruncate, int, -1, EIO, (int file, off_t size) noexcept, (file, size))
STOWLINE_FALLIBLE(ftruncate64, int, -1, EIO, (int file, off_t size) noexcept, (file, size))
STOWLINE_FALLIBLE(stat, int, -1, EIO, (const char* path, struct stat* to) noexcept, (path, to))
STOWLINE_FALLIBLE(stat64, int, -1, EIO, (const char* path, struct stat64* to) noexcept, (path, to))
STOWLINE_FALLIBLE(lstat, int, -1, EIO, (const char* path, struct stat* to) noexcept, (path, to))
STOWLINE_FALLIBLE(fstat, int, -1, EIO, (int file, struct stat* to) noexcept, (file, to))
STOWLINE_FALLIBLE(fstat64, int, -1, EIO, (int file, struct stat64* to) noexcept, (file, to))
STOWLINE_FALLIBLE(fstatat, int, -1, EIO,
                  (int folder, const char* path, struct stat* to, int flags) noexcept,
                  (folder, path, to, flags))
STOWLINE_FALLIBLE(statx, int, -1, EIO,
                  (int folder, const char* path, int flags, unsigned mask,
                   struct statx* to) noexcept,
                  (folder, path, flags, mask, to))
STOWLINE_FALLIBLE(statvfs, int, -1, EIO, (const char* path, struct statvfs* to) noexcept,
                  (path, to))
STOWLINE_FALLIBLE(rename, int, -1, EACCES, (const char* from, const char* to) noexcept, (from, to))
STOWLINE_FALLIBLE(unlink, int, -1, EACCES, (const char* path) noexcept, (path))
STOWLINE_FALLIBLE(unlinkat, int, -1, EACCES, (int folder, const char* path, int flags) noexcept,
                  (folder, path, flags))
STOWLINE_FALLIBLE(mkdir, int, -1, ENOSPC, (const char* path, mode_t mode) noexcept, (path, mode))
STOWLINE_FALLIBLE(mkdirat, int, -1, ENOSPC, (int folder, const char* path, mode_t mode) noexcept,
                  (folder, path, mode))
STOWLINE_FALLIBLE(mknodat, int, -1, ENOSPC,
                  (int folder, const char* path, mode_t mode, dev_t device) noexcept,
                  (folder, path, mode, device))
STOWLINE_FALLIBLE(symlinkat, int, -1, ENOSPC,
                  (const char* target, int folder, const char* path) noexcept,
                  (target, folder, path))
STOWLINE_FALLIBLE(linkat, int, -1, EMLINK,
                  (int fromFolder, const char* from, int toFolder, const char* to,
                   int flags) noexcept,
                  (fromFolder, from, toFolder, to, flags))
STOWLINE_FALLIBLE(renameat, int, -1, EACCES,
                  (int fromFolder, const char* from, int toFolder, const char* to) noexcept,
                  (fromFolder, from, toFolder, to))
STOWLINE_FALLIBLE(renameat2, int, -1, EACCES,
                  (int fromFolder, const char* from, int toFolder, const char* to,
                   unsigned flags) noexcept,
                  (fromFolder, from, toFolder, to, flags))
STOWLINE_FALLIBLE(syncfs, int, -1, EIO, (int file) noexcept, (file))
STOWLINE_FALLIBLE(chmod, int, -1, EPERM, (const char* path, mode_t mode) noexcept, (path, mode))
STOWLINE_FALLIBLE(fchmod, int, -1, EPERM, (int file, mode_t mode) noexcept, (file, mode))
STOWLINE_FALLIBLE(fchmodat, int, -1, EPERM,
                  (int folder, const char* path, mode_t mode, int flags) noexcept,
                  (folder, path, mode, flags))
STOWLINE_FALLIBLE(fchownat, int, -1, EPERM,
                  (int folder, const char* path, uid_t owner, gid_t group, int flags) noexcept,
                  (folder, path, owner, group, flags))
STOWLINE_FALLIBLE(futimens, int, -1, EROFS, (int file, const timespec* times) noexcept,
                  (file, times))
STOWLINE_FALLIBLE(utimensat, int, -1, EROFS,
                  (int folder, const char* path, const timespec* times, int flags) noexcept,
                  (folder, path, times, flags))
STOWLINE_FALLIBLE(setxattr, int, -1, ENOSPC,
                  (const char* path, const char* name, const void* from, Bytes size,
                   int flags) noexcept,
                  (path, name, from, size, flags))
STOWLINE_FALLIBLE(fsetxattr, int, -1, ENOSPC,
                  (int file, const char* name, const void* from, Bytes size, int flags) noexcept,
                  (file, name, from, size, flags))
STOWLINE_FALLIBLE(readlinkat, ssize_t, -1, EIO,
                  (int folder, const char* path, char* to, Bytes size) noexcept,
                  (folder, path, to, size))
STOWLINE_FALLIBLE(mkostemp, int, -1, EMFILE, (char* path, int flags), (path, flags))
STOWLINE_FALLIBLE(flock, int, -1, ENOLCK, (int file, int operation) noexcept, (file, operation))
STOWLINE_FALLIBLE(lgetxattr, ssize_t, -1, ENOTSUP,
                  (const char* path, const char* name, void* to, Bytes size) noexcept,
                  (path, name, to, size))
STOWLINE_FALLIBLE(lsetxattr, int, -1, ENOTSUP,
                  (const char* path, const char* name, const void* from, Bytes size,
                   int flags) noexcept,
                  (path, name, from, size, flags))
STOWLINE_FALLIBLE(mmap64, void*, MAP_FAILED, ENOMEM,
                  (void* at, Bytes size, int protection, int flags, int file,
                   off_t offset) noexcept,
                  (at, size, protection, flags, file, offset))
// Processes and threads.
STOWLINE_FALLIBLE(memfd_create, int, -1, EMFILE, (const char* name, unsigned flags) noexcept,
                  (name, flags))
STOWLINE_FALLIBLE(timerfd_create, int, -1, EMFILE, (clockid_t clock, int flags) noexcept,
                  (clock, flags))
STOWLINE_FALLIBLE(fork, pid_t, -1, EAGAIN, () noexcept, ())
STOWLINE_FALLIBLE(dup2, int, -1, EBADF, (int file, int place) noexcept, (file, place))
STOWLINE_FALLIBLE(close_range, int, -1, ENOSYS, (unsigned first, unsigned last, int flags) noexcept,
                  (first, last, flags))
STOWLINE_FALLIBLE(shutdown, int, -1, ENOTCONN, (int socket, int how) noexcept, (socket, how))
STOWLINE_FALLIBLE(pipe2, int, -1, EMFILE, (int* ends, int flags) noexcept, (ends, flags))
STOWLINE_FALLIBLE(pthread_create, int, EAGAIN, EAGAIN,
                  (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept,
                  (thread, attributes, start, argument))
STOWLINE_FALLIBLE(getrandom, ssize_t, -1, ENOSYS, (void* to, Bytes size, unsigned flags),
                  (to, size, flags))
// Network, and waiting.
STOWLINE_FALLIBLE(socket, int, -1, EMFILE, (int domain, int type, int protocol) noexcept,
                  (domain, type, protocol))
STOWLINE_FALLIBLE(socketpair, int, -1, EMFILE,
                  (int domain, int type, int protocol, int* ends) noexcept,
                  (domain, type, protocol, ends))
STOWLINE_FALLIBLE(connect, int, -1, ECONNREFUSED, (int socket, const sockaddr* to, socklen_t size),
                  (socket, to, size))
STOWLINE_FALLIBLE(send, ssize_t, -1, ECONNRESET,
                  (int socket, const void* from, Bytes size, int flags),
                  (socket, from, size, flags))
STOWLINE_FALLIBLE(recv, ssize_t, -1, ECONNRESET, (int socket, void* to, Bytes size, int flags),
                  (socket, to, size, flags))
STOWLINE_FALLIBLE(sendmsg, ssize_t, -1, ENOBUFS, (int socket, const msghdr* message, int flags),
                  (socket, message, flags))
STOWLINE_FALLIBLE(recvmsg, ssize_t, -1, ECONNRESET, (int socket, msghdr* message, int flags),
                  (socket, message, flags))
STOWLINE_FALLIBLE(getsockname, int, -1, ENOBUFS,
                  (int socket, sockaddr* to, socklen_t* size) noexcept, (socket, to, size))
STOWLINE_FALLIBLE(getsockopt, int, -1, ENOBUFS,
                  (int socket, int level, int option, void* to, socklen_t* size) noexcept,
                  (socket, level, option, to, size))
STOWLINE_FALLIBLE(setsockopt, int, -1, ENOBUFS,
                  (int socket, int level, int option, const void* from, socklen_t size) noexcept,
                  (socket, level, option, from, size))
STOWLINE_FALLIBLE(getaddrinfo, int, EAI_AGAIN, EAGAIN,
                  (const char* node, const char* service, const addrinfo* hints, addrinfo** to),
                  (node, service, hints, to))
STOWLINE_FALLIBLE(poll, int, -1, ENOMEM, (pollfd * watched, nfds_t count, int milliseconds),
                  (watched, count, milliseconds))

// Those that take a variable number of arguments.
#define STOWLINE_FALLIBLE_OPEN(NAME)                                                               \
    extern "C" int NAME(const char* path, int flags, ...)                                          \
    {                                                                                              \
        static const auto next = real(&NAME, #NAME);                                               \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const auto mode = va_arg(arguments, mode_t);                                               \
        va_end(arguments);                                                                         \
        if (fails(#NAME)) {                                                                        \
            errno = EMFILE;                                                                        \
            return -1;                                                                             \
        }                                                                                          \
        return next(path, flags, mode);                                                            \
    }
STOWLINE_FALLIBLE_OPEN(open)
STOWLINE_FALLIBLE_OPEN(open64)

/// Children are made by it; what comes after the argument is where a handle of the child goes.
extern "C" int clone(int (*start)(void*), void* stack, int flags, void* argument, ...) noexcept
{
    static const auto next = real(&clone, "clone");
    va_list arguments;
    va_start(arguments, argument);
    int* handle = va_arg(arguments, int*);
    va_end(arguments);
    if (fails("clone")) {
        errno = EAGAIN;
        return -1;
    }
    return next(start, stack, flags, argument, handle);
}

extern "C" int openat(int folder, const char* path, int flags, ...)
{
    static const auto next = real(&openat, "openat");
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if (fails("openat")) {
        errno = EMFILE;
        return -1;
    }
    return next(folder, path, flags, mode);
}

/// Those of the system's calls without a function of their own that are made here.
extern "C" long syscall(long number, ...) noexcept
{
    static const auto next = real(&syscall, "syscall");
    va_list arguments;
    va_start(arguments, number);
    std::array<long, 6> given{};
    for (long& argument : given)
        argument = va_arg(arguments, long);
    va_end(arguments);
    if ((number == SYS_openat2 && fails("openat2")) ||
        (number == SYS_pidfd_open && fails("pidfd_open"))) {
        errno = EMFILE;
        return -1;
    }
    if (number == SYS_pidfd_send_signal && fails("pidfd_send_signal")) {
        errno = EPERM;
        return -1;
    }
    return next(number, given[0], given[1], given[2], given[3], given[4], given[5]);
}

#define STOWLINE_FALLIBLE_CONTROL(NAME, OPERATION)                                                 \
    extern "C" int NAME(int file, OPERATION operation, ...) STOWLINE_CONTROL_NOEXCEPT              \
    {                                                                                              \
        static const auto next = real(&NAME, #NAME);                                               \
        va_list arguments;                                                                         \
        va_start(arguments, operation);                                                            \
        void* argument = va_arg(arguments, void*);                                                 \
        va_end(arguments);                                                                         \
        if (fails(#NAME)) {                                                                        \
            errno = EMFILE;                                                                        \
            return -1;                                                                             \
        }                                                                                          \
        return next(file, operation, argument);                                                    \
    }
#define STOWLINE_CONTROL_NOEXCEPT
STOWLINE_FALLIBLE_CONTROL(fcntl, int)
STOWLINE_FALLIBLE_CONTROL(fcntl64, int)
#undef STOWLINE_CONTROL_NOEXCEPT
#define STOWLINE_CONTROL_NOEXCEPT noexcept
STOWLINE_FALLIBLE_CONTROL(ioctl, unsigned long)

// Allocation.
static void* allocated(std::size_t size, std::size_t alignment = 0)
{
    if (fails("new"))
        return nullptr;
    if (size == 0)
        size = 1;
    return alignment > alignof(std::max_align_t)
               ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
               : std::malloc(size);
}

static void* orThrow(void* memory)
{
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

using Align = std::align_val_t;
void* operator new(std::size_t size)
{
    return orThrow(allocated(size));
}
void* operator new[](std::size_t size)
{
    return orThrow(allocated(size));
}
void* operator new(std::size_t size, Align alignment)
{
    return orThrow(allocated(size, static_cast<std::size_t>(alignment)));
}
void* operator new[](std::size_t size, Align alignment)
{
    return orThrow(allocated(size, static_cast<std::size_t>(alignment)));
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return allocated(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return allocated(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, Align /*alignment*/) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, Align /*alignment*/) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, Align /*alignment*/) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/, Align /*alignment*/) noexcept
{
    std::free(memory);
}
// NOLINTEND

namespace {

constexpr std::array kFunctions{// clang-format off
    "new", "read", "pread", "pread64", "write", "writev", "pwrite", "pwrite64", "copy_file_range",
    "lseek", "fsync", "fdatasync", "ftruncate", "ftruncate64", "stat", "stat64", "lstat", "fstat",
    "fstat64", "fstatat", "statx", "statvfs", "rename", "unlink", "unlinkat", "mkdir", "mkostemp", "flock",
    "lgetxattr", "lsetxattr", "mmap64", "memfd_create", "pipe2", "fork", "dup2", "clone", "close_range", "shutdown", "pidfd_open", "pidfd_send_signal", "pthread_create", "timerfd_create",
    "getrandom", "socket", "socketpair", "connect", "send", "recv", "sendmsg", "recvmsg", "getsockname", "getsockopt",
    "setsockopt", "getaddrinfo", "poll", "open", "open64", "openat", "openat2", "fcntl", "fcntl64", "ioctl",
    "mkdirat", "mknodat", "symlinkat", "linkat", "renameat", "renameat2", "syncfs", "chmod", "fchmod", "fchmodat",
    "fchownat", "futimens", "utimensat", "setxattr", "fsetxattr", "readlinkat"};
// clang-format on

/// The name as the table spells it, which is there for ever; null for an unknown one.
const char* kept(std::string_view function)
{
    for (const char* known : kFunctions) {
        if (function == known)
            return known;
    }
    return nullptr;
}

/// Maps the file that is to tell how much was called.
void shareMostCalls()
{
    const char* path = std::getenv("STOWLINE_INJECTION_COUNT");
    const int file = path ? ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1;
    if (file < 0)
        return;
    constexpr Bytes size = sizeof(std::atomic<std::size_t>);
    if (::ftruncate(file, size) == 0) {
        void* place = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (place != MAP_FAILED)
            mostCalls = static_cast<std::atomic<std::size_t>*>(place);
    }
    ::close(file);
}

/// In a program that is started with STOWLINE_INJECTION=function:call:once|always.
[[gnu::constructor]] void armFromEnvironment()
{
    const char* variable = std::getenv("STOWLINE_INJECTION");
    if (!variable)
        return;
    const std::string_view text = variable;
    const auto first = text.find(':');
    const auto second = text.find(':', first + 1);
    const char* function = kept(text.substr(0, first));
    if (!function || second == std::string_view::npos) {
        constexpr std::string_view sentence = "STOWLINE_INJECTION is not understood\n";
        (void)!::write(STDERR_FILENO, sentence.data(), sentence.size());
        std::abort();
    }
    armedCall = std::strtoul(variable + first + 1, nullptr, 10);
    isPersistent = text.substr(second + 1) == "always";
    shareMostCalls();
    armedFunction = function;
}

} // namespace

namespace stowline::test {

std::vector<std::string> injectableFunctions()
{
    return {kFunctions.begin(), kFunctions.end()};
}

void arm(const Injection& injection)
{
    calls = 0;
    failures = 0;
    eachCall = nullptr;
    armedCall = injection.call;
    isPersistent = injection.isPersistent;
    armedFunction = kept(injection.function);
}

void atEachCall(void (*callee)(std::size_t call))
{
    eachCall = callee;
}

Counts disarm()
{
    armedFunction = nullptr;
    return {calls, failures};
}

} // namespace stowline::test
