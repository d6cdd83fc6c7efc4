#include "stowline/platform/files/FolderHandle.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

constexpr int kFolder = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// A single name that the system takes whole.
bool isName(const std::string& name)
{
    return !name.empty() && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

FileDescriptor openedFolder(int at, const char* name, int& error)
{
    FileDescriptor folder(::openat(at, name, O_RDONLY | kFolder));
    if (!folder.isOpen() && errno == EACCES)
        folder = FileDescriptor(::openat(at, name, O_PATH | kFolder));
    error = folder.isOpen() ? 0 : errno;
    if (error == ELOOP)
        error = ENOTDIR;
    return folder;
}

ItemType typeOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return ItemType::folder;
    case S_IFLNK:
        return ItemType::link;
    case S_IFIFO:
        return ItemType::pipe;
    case S_IFSOCK:
        return ItemType::socket;
    case S_IFCHR:
        return ItemType::characterDevice;
    case S_IFBLK:
        return ItemType::blockDevice;
    default:
        return ItemType::file;
    }
}

StatusTime timeOf(const struct timespec& time)
{
    return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec)};
}

ItemStatus statusFrom(const struct stat& found)
{
    constexpr mode_t permissions = 07777;
    const ItemType type = typeOf(found.st_mode);
    const bool isDevice = type == ItemType::characterDevice || type == ItemType::blockDevice;
    return {.type = type,
            .size = type == ItemType::file ? static_cast<std::uint64_t>(found.st_size) : 0,
            .modified = timeOf(found.st_mtim),
            .changed = timeOf(found.st_ctim),
            .mode = found.st_mode & permissions,
            .owner = found.st_uid,
            .group = found.st_gid,
            .device = found.st_dev,
            .inode = found.st_ino,
            .links = found.st_nlink,
            .deviceNumber = isDevice ? found.st_rdev : 0};
}

/// Calls what fills a buffer until the buffer is large enough. @return absent: see errno
template <typename Fill> std::optional<std::string> filled(std::size_t firstSize, const Fill& fill)
{
    std::string room(firstSize, '\0');
    for (;;) {
        const ssize_t length = fill(room.data(), room.size());
        if (length >= 0 && static_cast<std::size_t>(length) < room.size()) {
            room.resize(static_cast<std::size_t>(length));
            return room;
        }
        if (length < 0 && errno != ERANGE)
            return std::nullopt;
        constexpr std::size_t most = 1U << 20;
        if (room.size() > most)
            return std::nullopt;
        room.resize(room.size() * 4);
    }
}

constexpr std::array<std::uint32_t, 22> kPseudo{
    0x00009fa0, // proc
    0x62656572, // sysfs
    0x00001cd1, // devpts
    0x64626720, // debugfs
    0x74726163, // tracefs
    0x0027e0eb, // cgroup
    0x63677270, // cgroup, version 2
    0x73636673, // securityfs
    0x6165676c, // pstore
    0xcafe4a11, // bpf
    0x19800202, // mqueue
    0x62656570, // configfs
    0xde5e81e4, // efivarfs
    0x65735543, // fusectl
    0xf97cff8c, // selinuxfs
    0x43415d53, // smackfs
    0x42494e4d, // binfmt_misc
    0x6e736673, // nsfs
    0x67596969, // rpc_pipefs
    0x6e667364, // nfsd
    0x958458f6, // hugetlbfs
    0x09041934, // inotify and the like without a name (anon_inode)
};

constexpr std::array<std::uint32_t, 13> kNetwork{
    0x00006969, // nfs
    0x0000517b, // smb
    0xff534d42, // cifs
    0xfe534d42, // smb2
    0x5346414f, // afs
    0x6b414653, // kafs
    0x73757245, // coda
    0x00c36400, // ceph
    0x01021997, // 9p
    0x7461636f, // ocfs2
    0x0bd00bd0, // lustre
    0x786f4256, // vboxsf
    0x65735546, // fuse
};

} // namespace

bool FolderHandle::isMountRoot() const
{
    struct statx found {};
    return ::statx(descriptor(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, 0, &found) == 0 &&
           (found.stx_attributes_mask & found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

std::optional<FolderHandle> FolderHandle::root(int& error)
{
    auto folder = openedFolder(AT_FDCWD, "/", error);
    return folder.isOpen() ? std::optional(FolderHandle(std::move(folder))) : std::nullopt;
}

std::optional<FolderHandle> FolderHandle::folder(const std::string& name, int& error) const
{
    if (!isName(name)) {
        error = EINVAL;
        return std::nullopt;
    }
    auto opened = openedFolder(descriptor(), name.c_str(), error);
    return opened.isOpen() ? std::optional(FolderHandle(std::move(opened))) : std::nullopt;
}

std::optional<FolderHandle> FolderHandle::parent(int& error) const
{
    return folder("..", error);
}

std::vector<std::string> FolderHandle::names(int& error) const
{
    std::vector<std::string> names;
    error = 0;
    const int descriptor = ::fcntl(folder_.number(), F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) {
        error = errno;
        return names;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::fdopendir(descriptor), &::closedir);
    if (!listing) {
        error = errno;
        (void)::close(descriptor);
        return names;
    }
    ::rewinddir(listing.get());
    for (;;) {
        errno = 0;
        const struct dirent* const entry = ::readdir(listing.get());
        if (!entry) {
            error = errno == EBADF ? EACCES : errno; // opened without the right to read it
            break;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    std::ranges::sort(names);
    return names;
}

std::optional<ItemStatus> FolderHandle::status(int& error) const
{
    struct stat found = {};
    if (::fstat(descriptor(), &found) != 0) {
        error = errno;
        return std::nullopt;
    }
    return statusFrom(found);
}

std::optional<ItemStatus> FolderHandle::statusOf(const std::string& name, int& error) const
{
    struct stat found = {};
    if (!isName(name) || ::fstatat(descriptor(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        error = isName(name) ? errno : EINVAL;
        return std::nullopt;
    }
    return statusFrom(found);
}

std::optional<std::string> FolderHandle::linkTarget(const std::string& name, int& error) const
{
    constexpr std::size_t usual = 256;
    auto target = filled(usual, [&](char* room, std::size_t size) {
        return ::readlinkat(descriptor(), name.c_str(), room, size);
    });
    if (!target)
        error = errno;
    return target;
}

std::optional<std::vector<NamedAttribute>> FolderHandle::attributesOf(const std::string& name,
                                                                      int& error) const
{
    // There is no call that takes an open folder and a name; this path leads through the
    // descriptor.
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor()) + "/" + name;
    constexpr std::size_t usual = 1024;
    const auto list = filled(usual, [&](char* room, std::size_t size) {
        return ::llistxattr(path.c_str(), room, size);
    });
    std::vector<NamedAttribute> attributes;
    if (!list) {
        error = errno;
        return error == ENOTSUP ? std::optional(attributes) : std::nullopt;
    }
    for (std::size_t at = 0; at < list->size(); at = list->find('\0', at) + 1) {
        const std::string attribute = list->data() + at;
        auto value = filled(usual, [&](char* room, std::size_t size) {
            return ::lgetxattr(path.c_str(), attribute.c_str(), room, size);
        });
        if (value) {
            attributes.emplace_back(attribute, std::move(*value));
        } else if (errno != ENODATA) {
            error = errno;
            return std::nullopt;
        }
    }
    std::ranges::sort(attributes);
    return attributes;
}

std::optional<FileSystemKind> FolderHandle::fileSystem(int& error) const
{
    struct statfs found = {};
    if (::fstatfs(descriptor(), &found) != 0) {
        error = errno;
        return std::nullopt;
    }
    const auto number = static_cast<std::uint32_t>(found.f_type);
    return FileSystemKind{.isPseudo = std::ranges::find(kPseudo, number) != kPseudo.end(),
                          .isNetwork = std::ranges::find(kNetwork, number) != kNetwork.end()};
}

} // namespace stowline::platform
