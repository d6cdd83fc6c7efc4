#include "stowline/platform/files/TargetItem.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

constexpr mode_t kModeBits = 07777;

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

} // namespace

bool isOneItem(const TargetStatus& one, const TargetStatus& other)
{
    return one.device == other.device && one.inode == other.inode && one.kind == other.kind;
}

std::optional<TargetStatus> targetStatusFrom(const struct ::stat& found)
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

std::optional<TargetStatus> targetStatusOf(int descriptor)
{
    struct stat found {};
    return fstat(descriptor, &found) == 0 ? targetStatusFrom(found) : std::nullopt;
}

std::string TargetItem::path() const
{
    return "/proc/self/fd/" + std::to_string(item_.number());
}

std::optional<TargetStatus> TargetItem::status() const
{
    return targetStatusOf(item_.number());
}

std::optional<std::string> TargetItem::linkTarget() const
{
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlinkat(item_.number(), "", target.data(), target.size());
    if (length < 0)
        return std::nullopt;
    target.resize(static_cast<std::size_t>(length));
    return target;
}

int TargetItem::setOwner(std::uint32_t owner, std::uint32_t group) const
{
    return outcome(fchownat(item_.number(), "", owner, group, AT_EMPTY_PATH));
}

int TargetItem::setMode(std::uint32_t mode) const
{
    if (!isPathOnly())
        return outcome(fchmod(item_.number(), mode));
    const auto now = status();
    if (now && now->kind == TargetKind::link)
        return EOPNOTSUPP;
    return outcome(chmod(path().c_str(), mode));
}

int TargetItem::setModified(std::int64_t seconds, std::uint32_t nanoseconds) const
{
    // Some file systems in user space do nothing, and say that all is well, where one of the two
    // times is left out: the other one is set to what it is.
    struct stat now = {};
    const bool isKnown = fstatat(item_.number(), "", &now, AT_EMPTY_PATH) == 0;
    const std::array<timespec, 2> times{
        isKnown ? now.st_atim : timespec{0, UTIME_OMIT},
        timespec{seconds, static_cast<decltype(timespec::tv_nsec)>(nanoseconds)}};
    if (!isPathOnly())
        return outcome(futimens(item_.number(), times.data()));
    const int error = outcome(utimensat(item_.number(), "", times.data(), AT_EMPTY_PATH));
    if (error != EINVAL)
        return error; // EINVAL: Linux before 5.8. The path leads to the item, were it a link
                      // itself.
    return outcome(utimensat(AT_FDCWD, path().c_str(), times.data(), 0));
}

std::optional<TargetItem::Attributes> TargetItem::attributes(int& error) const
{
    const std::string way = path();
    const auto listInto = [&](char* room, std::size_t size) {
        return isPathOnly() ? listxattr(way.c_str(), room, size)
                            : flistxattr(item_.number(), room, size);
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
            isPathOnly() ? getxattr(way.c_str(), attribute.c_str(), value.data(), value.size())
                         : fgetxattr(item_.number(), attribute.c_str(), value.data(), value.size());
        if (size < 0)
            continue; // of another name space, or gone
        value.resize(static_cast<std::size_t>(size));
        attributes.emplace(attribute, std::move(value));
    }
    return attributes;
}

int TargetItem::setAttribute(const std::string& attribute, std::string_view value) const
{
    return outcome(
        isPathOnly() ? setxattr(path().c_str(), attribute.c_str(), value.data(), value.size(), 0)
                     : fsetxattr(item_.number(), attribute.c_str(), value.data(), value.size(), 0));
}

int TargetItem::removeAttribute(const std::string& attribute) const
{
    return outcome(isPathOnly() ? removexattr(path().c_str(), attribute.c_str())
                                : fremovexattr(item_.number(), attribute.c_str()));
}

} // namespace stowline::platform
