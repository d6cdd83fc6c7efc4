#include "stowline/platform/files/FileStatus.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

Date dateOf(const struct statx_timestamp& time)
{
    return Date(std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_nsec / 1000));
}

bool isOurs(const struct stat& found)
{
    return found.st_uid == ::geteuid() || found.st_uid == 0;
}

std::string inUserNameSpace(const std::string& name)
{
    return "user." + name;
}

} // namespace

std::optional<FileStatus> fileStatus(const std::filesystem::path& path)
{
    struct statx found = {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                &found) != 0)
        return std::nullopt;
    const Date created =
        (found.stx_mask & STATX_BTIME) != 0
            ? dateOf(found.stx_btime)
            : std::min({dateOf(found.stx_atime), dateOf(found.stx_mtime), dateOf(found.stx_ctime)});
    return FileStatus{
        .size = found.stx_size,
        .created = created,
        .modified = dateOf(found.stx_mtime),
        .isRegular = S_ISREG(found.stx_mode),
        .isFolder = S_ISDIR(found.stx_mode),
        .device = std::uint64_t{found.stx_dev_major} << 32 | found.stx_dev_minor,
        .inode = found.stx_ino,
    };
}

bool mayOthersWrite(const std::filesystem::path& path)
{
    std::error_code fault;
    const auto real = std::filesystem::canonical(path, fault);
    struct stat file = {};
    struct stat folder = {};
    if (fault || ::stat(real.c_str(), &file) != 0 || !isOurs(file) || (file.st_mode & S_IWOTH) != 0)
        return true;
    return ::stat(real.parent_path().c_str(), &folder) != 0 || !isOurs(folder) ||
           ((folder.st_mode & S_IWOTH) != 0 && (folder.st_mode & S_ISVTX) == 0);
}

int findExtendedAttribute(const std::filesystem::path& path, const std::string& name)
{
    return ::lgetxattr(path.c_str(), inUserNameSpace(name).c_str(), nullptr, 0) < 0 ? errno : 0;
}

int setExtendedAttribute(const std::filesystem::path& path, const std::string& name)
{
    return ::lsetxattr(path.c_str(), inUserNameSpace(name).c_str(), "", 0, 0) < 0 ? errno : 0;
}

int removeExtendedAttribute(const std::filesystem::path& path, const std::string& name)
{
    return ::lremovexattr(path.c_str(), inUserNameSpace(name).c_str()) < 0 ? errno : 0;
}

std::optional<std::uint64_t> freeSpaceAt(const std::filesystem::path& path)
{
    struct statvfs found = {};
    if (::statvfs(path.c_str(), &found) != 0)
        return std::nullopt;
    return std::uint64_t(found.f_bavail) * found.f_frsize;
}

} // namespace stowline::platform
