#include "stowline/platform/files/TargetFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <linux/capability.h>
#include <linux/openat2.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>

#include <dirent.h>
#include <memory>

namespace stowline::platform {

namespace {

constexpr std::size_t kBlock = 4096;
constexpr mode_t kModeBits = 07777;
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int outcome(int result)
{
    return result == 0 ? 0 : errno;
}

std::optional<TargetKind> kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG:
        return TargetKind::file;
    case S_IFDIR:
        return TargetKind::folder;
    case S_IFLNK:
        return TargetKind::link;
    case S_IFIFO:
        return TargetKind::pipe;
    case S_IFSOCK:
        return TargetKind::socket;
    case S_IFCHR:
        return TargetKind::characterDevice;
    case S_IFBLK:
        return TargetKind::blockDevice;
    default:
        return std::nullopt;
    }
}

std::optional<TargetStatus> statusFrom(const struct stat& found)
{
    const auto kind = kindOf(found.st_mode);
    if (!kind)
        return std::nullopt;
    return TargetStatus{.kind = *kind,
                        .size = static_cast<std::uint64_t>(found.st_size),
                        .mode = found.st_mode & kModeBits,
                        .owner = found.st_uid,
                        .group = found.st_gid,
                        .modifiedSeconds = found.st_mtim.tv_sec,
                        .modifiedNanoseconds = static_cast<std::uint32_t>(found.st_mtim.tv_nsec),
                        .device = found.st_dev,
                        .inode = found.st_ino,
                        .links = found.st_nlink,
                        .deviceNumber = found.st_rdev};
}

std::optional<TargetStatus> statusOf(int descriptor)
{
    struct stat found {};
    return fstat(descriptor, &found) == 0 ? statusFrom(found) : std::nullopt;
}

/// Through what a folder below another one may be opened.
enum class Passage { anyMount, sameMount };

/// The number by which the kernel knows the mount that something lies on.
std::optional<std::string> mountNumber(int descriptor)
{
    std::ifstream lines("/proc/self/fdinfo/" + std::to_string(descriptor));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("mnt_id:"))
            return line;
    }
    return std::nullopt;
}

bool isOnSameMount(int descriptor, int other)
{
    const auto number = mountNumber(descriptor);
    return number && number == mountNumber(other);
}

/// One name after another, for kernels without openat2.
FileDescriptor openStepByStep(int folder, std::string_view path, Passage passage, int& error)
{
    FileDescriptor at(::openat(folder, ".", kFolderFlags));
    while (at.isOpen() && !path.empty()) {
        const auto slash = std::min(path.find('/'), path.size());
        const std::string name(path.substr(0, slash));
        path.remove_prefix(std::min(slash + 1, path.size()));
        if (name.empty() || name == "." || name == "..") {
            error = EINVAL;
            return {};
        }
        at = FileDescriptor(::openat(at.number(), name.c_str(), kFolderFlags));
    }
    error = errno;
    if (at.isOpen() && passage == Passage::sameMount && !isOnSameMount(at.number(), folder)) {
        error = EXDEV;
        return {};
    }
    return at;
}

FileDescriptor openBelowAtOnce(int folder, std::string_view path, Passage passage, int& error)
{
    if (path.empty())
        return openStepByStep(folder, path, passage, error);
    open_how how{};
    how.flags = static_cast<std::uint64_t>(kFolderFlags);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    if (passage == Passage::sameMount)
        how.resolve |= RESOLVE_NO_XDEV;
    for (;;) {
        const long opened =
            syscall(SYS_openat2, folder, std::string(path).c_str(), &how, sizeof how);
        if (opened >= 0)
            return FileDescriptor(static_cast<int>(opened));
        if (errno == ENOSYS || errno == EPERM) // EPERM: a filter that does not know the call
            return openStepByStep(folder, path, passage, error);
        if (errno != EAGAIN && errno != EINTR) {
            error = errno;
            return {};
        }
    }
}

/// A path of any length: what the system takes at once, and again from there.
FileDescriptor openBelow(int folder, std::string_view path, Passage passage, int& error)
{
    FileDescriptor at;
    while (path.size() >= PATH_MAX) {
        const auto slash = path.rfind('/', PATH_MAX - 1);
        if (slash == std::string_view::npos || slash == 0) {
            error = ENAMETOOLONG;
            return {};
        }
        at = openBelowAtOnce(at.isOpen() ? at.number() : folder, path.substr(0, slash), passage,
                             error);
        if (!at.isOpen())
            return {};
        path.remove_prefix(slash + 1);
    }
    return openBelowAtOnce(at.isOpen() ? at.number() : folder, path, passage, error);
}

bool isZero(std::string_view block)
{
    return std::ranges::all_of(block, [](char byte) { return byte == 0; });
}

int writeWhole(int descriptor, std::uint64_t offset, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count =
            pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count == 0 ? ENOSPC : errno;
        bytes.remove_prefix(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
    return 0;
}

} // namespace

std::optional<TargetStatus> TargetFile::status() const
{
    return statusOf(file_.number());
}

bool TargetFile::lock() const
{
    return flock(file_.number(), LOCK_EX | LOCK_NB) == 0;
}

std::optional<std::size_t> TargetFile::readAt(std::uint64_t offset, std::span<char> room) const
{
    std::size_t done = 0;
    while (done < room.size()) {
        const ssize_t count = pread(file_.number(), room.data() + done, room.size() - done,
                                    static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

int TargetFile::writeAt(std::uint64_t offset, std::string_view bytes) const
{
    std::string_view waiting; // of blocks that are not all zeros
    std::uint64_t waitingAt = offset;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t toBoundary = kBlock - (offset + at) % kBlock;
        const auto block = bytes.substr(at, toBoundary);
        if (!isZero(block)) {
            if (waiting.empty())
                waitingAt = offset + at;
            waiting = bytes.substr(waitingAt - offset, at + block.size() - (waitingAt - offset));
        } else if (!waiting.empty()) {
            if (const int error = writeWhole(file_.number(), waitingAt, waiting))
                return error;
            waiting = {};
        }
        at += block.size();
    }
    if (const int error = writeWhole(file_.number(), waitingAt, waiting))
        return error;
    // What ends with zeros ends behind them.
    const auto now = statusOf(file_.number());
    const std::uint64_t end = offset + bytes.size();
    return now && now->size < end ? truncate(end) : 0;
}

int TargetFile::truncate(std::uint64_t size) const
{
    return outcome(ftruncate(file_.number(), static_cast<off_t>(size)));
}

int TargetFile::synchronize() const
{
    return outcome(fsync(file_.number()));
}

std::optional<TargetFolder> TargetFolder::open(const std::filesystem::path& path, bool makes,
                                               int& error)
{
    if (makes) {
        std::error_code fault;
        std::filesystem::create_directories(path, fault);
        if (fault && fault != std::errc::file_exists) {
            error = fault.value();
            return std::nullopt;
        }
    }
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen()) {
        error = errno;
        return std::nullopt;
    }
    return TargetFolder(std::move(folder));
}

std::optional<TargetFolder> TargetFolder::below(std::string_view path, int& error) const
{
    FileDescriptor folder = openBelow(folder_.number(), path, Passage::anyMount, error);
    return folder.isOpen() ? std::optional(TargetFolder(std::move(folder))) : std::nullopt;
}

std::optional<TargetFolder> TargetFolder::belowOnSameMount(std::string_view path, int& error) const
{
    FileDescriptor folder = openBelow(folder_.number(), path, Passage::sameMount, error);
    return folder.isOpen() ? std::optional(TargetFolder(std::move(folder))) : std::nullopt;
}

bool TargetFolder::isMountPoint(const std::string& name) const
{
    struct statx found {};
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC |
                      (name.empty() ? AT_EMPTY_PATH : 0);
    if (::statx(folder_.number(), name.c_str(), flags, 0, &found) == 0 &&
        (found.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0)
        return (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    struct stat there {};
    struct stat above {};
    return fstatat(folder_.number(), name.empty() ? "." : name.c_str(), &there,
                   AT_SYMLINK_NOFOLLOW) == 0 &&
           fstatat(folder_.number(), name.empty() ? ".." : ".", &above, 0) == 0 &&
           there.st_dev != above.st_dev;
}

std::optional<TargetStatus> TargetFolder::find(const std::string& name, int& error) const
{
    struct stat found {};
    if (fstatat(folder_.number(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        error = errno;
        return std::nullopt;
    }
    error = EINVAL;
    return statusFrom(found);
}

std::optional<TargetStatus> TargetFolder::status() const
{
    return statusOf(folder_.number());
}

std::optional<std::vector<std::string>> TargetFolder::names(int& error) const
{
    const int again = ::openat(folder_.number(), ".", kFolderFlags);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(again < 0 ? nullptr : fdopendir(again),
                                                     &closedir);
    if (!folder) {
        error = errno;
        if (again >= 0)
            ::close(again);
        return std::nullopt;
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    error = errno;
    return error == 0 ? std::optional(std::move(names)) : std::nullopt;
}

std::optional<std::string> TargetFolder::linkTarget(const std::string& name, int& error) const
{
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlinkat(folder_.number(), name.c_str(), target.data(), target.size());
    if (length < 0) {
        error = errno;
        return std::nullopt;
    }
    target.resize(static_cast<std::size_t>(length));
    return target;
}

std::optional<TargetFile> TargetFolder::openFile(const std::string& name, int& error) const
{
    // Not to wait for a pipe that took the place of the file.
    FileDescriptor file(::openat(folder_.number(), name.c_str(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    error = errno;
    if (!file.isOpen())
        return std::nullopt;
    const auto status = statusOf(file.number());
    error = EINVAL;
    if (!status || status->kind != TargetKind::file)
        return std::nullopt;
    return TargetFile(std::move(file));
}

std::optional<TargetFile> TargetFolder::openOrMakeFile(const std::string& name, int& error) const
{
    constexpr mode_t ownersOnly = 0600;
    FileDescriptor file(::openat(folder_.number(), name.c_str(),
                                 O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                                 ownersOnly));
    error = errno;
    if (!file.isOpen())
        return std::nullopt;
    const auto status = statusOf(file.number());
    error = EEXIST;
    // One with another name was put there for us to write through.
    if (!status || status->kind != TargetKind::file || status->links != 1)
        return std::nullopt;
    return TargetFile(std::move(file));
}

int TargetFolder::makeFolder(const std::string& name, std::uint32_t mode) const
{
    return outcome(mkdirat(folder_.number(), name.c_str(), mode));
}

int TargetFolder::makeLink(const std::string& name, const std::string& target) const
{
    return outcome(symlinkat(target.c_str(), folder_.number(), name.c_str()));
}

int TargetFolder::makeNode(const std::string& name, TargetKind kind,
                           std::uint64_t deviceNumber) const
{
    constexpr mode_t ownersOnly = 0600;
    const mode_t type = kind == TargetKind::pipe              ? S_IFIFO
                        : kind == TargetKind::socket          ? S_IFSOCK
                        : kind == TargetKind::characterDevice ? S_IFCHR
                                                              : S_IFBLK;
    return outcome(mknodat(folder_.number(), name.c_str(), type | ownersOnly, deviceNumber));
}

int TargetFolder::makeHardLink(const TargetFolder& folder, const std::string& of,
                               const std::string& name) const
{
    return outcome(linkat(folder.folder_.number(), of.c_str(), folder_.number(), name.c_str(), 0));
}

int TargetFolder::rename(const std::string& from, const std::string& to) const
{
    return outcome(renameat(folder_.number(), from.c_str(), folder_.number(), to.c_str()));
}

int TargetFolder::renameToNew(const std::string& from, const std::string& to) const
{
    const int folder = folder_.number();
    if (renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // A file system or a kernel that does not know how to do both at once.
    int error = 0;
    return find(to, error) ? EEXIST : rename(from, to);
}

int TargetFolder::remove(const std::string& name) const
{
    return outcome(unlinkat(folder_.number(), name.c_str(), 0));
}

int TargetFolder::removeFolder(const std::string& name) const
{
    return outcome(unlinkat(folder_.number(), name.c_str(), AT_REMOVEDIR));
}

int TargetFolder::setOwner(const std::string& name, std::uint32_t owner, std::uint32_t group) const
{
    return outcome(fchownat(folder_.number(), name.c_str(), owner, group,
                            AT_SYMLINK_NOFOLLOW | (name.empty() ? AT_EMPTY_PATH : 0)));
}

int TargetFolder::setMode(const std::string& name, std::uint32_t mode) const
{
    if (name.empty())
        return outcome(fchmod(folder_.number(), mode));
    return outcome(fchmodat(folder_.number(), name.c_str(), mode, AT_SYMLINK_NOFOLLOW));
}

int TargetFolder::setModified(const std::string& name, std::int64_t seconds,
                              std::uint32_t nanoseconds) const
{
    const std::array<timespec, 2> times{
        timespec{0, UTIME_OMIT},
        timespec{seconds, static_cast<decltype(timespec::tv_nsec)>(nanoseconds)}};
    if (name.empty())
        return outcome(futimens(folder_.number(), times.data()));
    return outcome(utimensat(folder_.number(), name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW));
}

/// For calls that know neither descriptors of folders nor links' own attributes.
std::string TargetFolder::pathOf(const std::string& name) const
{
    const std::string folder = "/proc/self/fd/" + std::to_string(folder_.number());
    return folder + "/" + name;
}

std::optional<TargetFolder::Attributes> TargetFolder::attributes(const std::string& name,
                                                                 int& error) const
{
    // The folder itself by its descriptor: its own mode may refuse a look into it to its owner.
    const int self = name.empty() ? folder_.number() : -1;
    const std::string path = pathOf(name);
    const auto listInto = [&](char* room, std::size_t size) {
        return self >= 0 ? flistxattr(self, room, size) : llistxattr(path.c_str(), room, size);
    };
    if (listInto(nullptr, 0) == 0)
        return Attributes();
    std::string list(XATTR_LIST_MAX, '\0');
    const ssize_t length = listInto(list.data(), list.size());
    if (length < 0) {
        error = errno;
        return error == ENOTSUP ? std::optional(Attributes()) : std::nullopt;
    }
    Attributes attributes;
    for (std::string_view rest(list.data(), static_cast<std::size_t>(length)); !rest.empty();) {
        const std::string attribute(rest.substr(0, rest.find('\0')));
        rest.remove_prefix(attribute.size() + 1);
        std::string value(XATTR_SIZE_MAX, '\0');
        const ssize_t size =
            self >= 0 ? fgetxattr(self, attribute.c_str(), value.data(), value.size())
                      : lgetxattr(path.c_str(), attribute.c_str(), value.data(), value.size());
        if (size < 0)
            continue; // of another name space, or gone
        value.resize(static_cast<std::size_t>(size));
        attributes.emplace(attribute, std::move(value));
    }
    return attributes;
}

int TargetFolder::setAttribute(const std::string& name, const std::string& attribute,
                               std::string_view value) const
{
    if (name.empty())
        return outcome(
            fsetxattr(folder_.number(), attribute.c_str(), value.data(), value.size(), 0));
    return outcome(
        lsetxattr(pathOf(name).c_str(), attribute.c_str(), value.data(), value.size(), 0));
}

int TargetFolder::removeAttribute(const std::string& name, const std::string& attribute) const
{
    if (name.empty())
        return outcome(fremovexattr(folder_.number(), attribute.c_str()));
    return outcome(lremovexattr(pathOf(name).c_str(), attribute.c_str()));
}

int TargetFolder::synchronizeFileSystem() const
{
    return outcome(syncfs(folder_.number()));
}

bool mayMakeDevices()
{
    __user_cap_header_struct head{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
    return syscall(SYS_capget, &head, rights.data()) == 0 &&
           (rights[CAP_TO_INDEX(CAP_MKNOD)].effective & CAP_TO_MASK(CAP_MKNOD)) != 0;
}

std::uint32_t ownUserNumber()
{
    return geteuid();
}

std::optional<std::string> userName(std::uint32_t number)
{
    std::string room(65536, '\0');
    passwd entry{};
    passwd* found = nullptr;
    (void)getpwuid_r(number, &entry, room.data(), room.size(), &found);
    return found == nullptr ? std::nullopt : std::optional<std::string>(entry.pw_name);
}

std::optional<std::uint32_t> userNumber(const std::string& name)
{
    std::string room(65536, '\0');
    passwd entry{};
    passwd* found = nullptr;
    (void)getpwnam_r(name.c_str(), &entry, room.data(), room.size(), &found);
    return found == nullptr ? std::nullopt : std::optional<std::uint32_t>(entry.pw_uid);
}

std::optional<std::uint32_t> groupNumber(const std::string& name)
{
    std::string room(65536, '\0');
    group entry{};
    group* found = nullptr;
    (void)getgrnam_r(name.c_str(), &entry, room.data(), room.size(), &found);
    return found == nullptr ? std::nullopt : std::optional<std::uint32_t>(entry.gr_gid);
}

std::string systemErrorText(int error)
{
    return std::generic_category().message(error);
}

} // namespace stowline::platform
