#include "stowline/platform/files/TargetFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <linux/capability.h>
#include <linux/openat2.h>
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
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int outcome(int result)
{
    return result == 0 ? 0 : errno;
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

std::optional<TargetItem> itemOf(int descriptor, int& error)
{
    FileDescriptor own(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    error = errno;
    if (!own.isOpen())
        return std::nullopt;
    return TargetItem(std::move(own), TargetItem::Descriptor::open);
}

} // namespace

std::optional<TargetStatus> TargetFile::status() const
{
    return targetStatusOf(file_.number());
}

std::optional<TargetItem> TargetFile::item(int& error) const
{
    return itemOf(file_.number(), error);
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
    const auto now = targetStatusOf(file_.number());
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
    return targetStatusFrom(found);
}

std::optional<TargetStatus> TargetFolder::status() const
{
    return targetStatusOf(folder_.number());
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
    const auto status = targetStatusOf(file.number());
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
    const auto status = targetStatusOf(file.number());
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

int TargetFolder::makeHardLink(const TargetItem& item, const std::string& name) const
{
    return outcome(
        linkat(AT_FDCWD, item.path().c_str(), folder_.number(), name.c_str(), AT_SYMLINK_FOLLOW));
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

std::optional<TargetItem> TargetFolder::item(const std::string& name, int& error) const
{
    if (name.empty())
        return itemOf(folder_.number(), error);
    FileDescriptor item(::openat(folder_.number(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    error = errno;
    if (!item.isOpen())
        return std::nullopt;
    return TargetItem(std::move(item), TargetItem::Descriptor::pathOnly);
}

bool TargetFolder::isNameOf(const TargetItem& item, const std::string& name) const
{
    int error = 0;
    const auto there = find(name, error);
    const auto held = item.status();
    return there && held && isOneItem(*there, *held);
}

int TargetFolder::setMode(const std::string& name, std::uint32_t mode) const
{
    int error = 0;
    const auto held = item(name, error);
    return held ? held->setMode(mode) : error;
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

} // namespace stowline::platform
