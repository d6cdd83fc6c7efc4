#include "stowline/platform/files/FileHandle.h"

#include "stowline/platform/text/SystemErrorText.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {

namespace fs = std::filesystem;

namespace {

struct stat attributes(const FileDescriptor& file, const fs::path& path)
{
    struct stat found = {};
    if (::fstat(file.number(), &found) != 0)
        throw FileFault("Cannot get the status of", path, errno);
    return found;
}

/// The system would take a path only up to a NUL.
void requireWhole(const fs::path& path, const char* deed)
{
    if (path.native().find('\0') != std::string::npos)
        throw FileFault(deed, path, EINVAL);
}

/// Whether what stands there, links not followed, is the open file.
using Identity = std::pair<std::uint64_t, std::uint64_t>; ///< device and inode

std::optional<Identity> identityOf(const FileDescriptor& file) noexcept
{
    struct stat status = {};
    if (::fstat(file.number(), &status) != 0)
        return std::nullopt;
    return Identity(status.st_dev, status.st_ino);
}

/// What a name in a folder stands for; absent when it cannot be told.
std::optional<Identity> identityAt(int folder, const char* name) noexcept
{
    struct stat status = {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return Identity(status.st_dev, status.st_ino);
}

/// The system's ways of saying that it cannot move bytes between these two files by itself.
bool meansNotSupported(int systemError)
{
    return systemError == EXDEV || systemError == EINVAL || systemError == ENOSYS ||
           systemError == EOPNOTSUPP || systemError == EPERM || systemError == EBADF ||
           systemError == ETXTBSY;
}

} // namespace

FileFault::FileFault(const char* deed, const fs::path& path, int systemError)
    : std::runtime_error(std::string(deed) + " " + path.string() + ": " +
                         systemErrorText(systemError)),
      systemError_(systemError)
{
}

FileHandle FileHandle::forReading(const fs::path& path)
{
    requireWhole(path, "Cannot open");
    // Not blocking, because opening a pipe would wait for a writer.
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file.isOpen())
        throw FileFault("Cannot open", path, errno);
    if (!S_ISREG(attributes(file, path).st_mode))
        throw FileFault("Cannot read " + path.string() + ": it is not a regular file");
    (void)::posix_fadvise(file.number(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return {std::move(file), path};
}

std::optional<FileHandle> FileHandle::create(const fs::path& path, unsigned mostPermissions)
{
    requireWhole(path, "Cannot create");
    const fs::path parent = path.parent_path();
    FileDescriptor folder(
        ::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen())
        throw FileFault("Cannot create", path, errno);
    const fs::path name = path.filename();
    FileHandle created({}, path, std::move(folder)); // before there is a file that could be left
    const mode_t mode = 0666 & mostPermissions;      // less what the process's mask takes away
    created.file_ = FileDescriptor(::openat(created.folder_.number(), name.c_str(),
                                            O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (created.file_.isOpen()) {
        created.identity_ = identityOf(created.file_);
        if (created.identity_)
            return created;
        const int fault = errno;
        ::unlinkat(created.folder_.number(), name.c_str(), 0);
        throw FileFault("Cannot create", path, fault);
    }
    if (errno == EEXIST)
        return std::nullopt;
    throw FileFault("Cannot create", path, errno);
}

unsigned FileHandle::permissions() const
{
    return attributes(file_, path_).st_mode & 0777U;
}

std::uint64_t FileHandle::size() const
{
    return static_cast<std::uint64_t>(attributes(file_, path_).st_size);
}

std::size_t FileHandle::read(std::span<char> room)
{
    for (;;) {
        const ssize_t count = ::read(file_.number(), room.data(), room.size());
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            throw FileFault("Cannot read", path_, errno);
    }
}

std::size_t FileHandle::readAt(std::uint64_t offset, std::span<char> room) const
{
    std::size_t filled = 0;
    while (filled < room.size()) {
        const ssize_t count = ::pread(file_.number(), room.data() + filled, room.size() - filled,
                                      static_cast<off_t>(offset + filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw FileFault("Cannot read", path_, errno);
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

void FileHandle::write(std::string_view bytes)
{
    if (!writeAll(file_.number(), bytes))
        throw FileFault("Cannot write to", path_, errno);
}

/// Where the next data begin and end. File systems that cannot tell have no holes.
void FileHandle::lookForData()
{
    const off_t begin = ::lseek(file_.number(), position_, SEEK_DATA);
    const off_t end = begin < 0 ? -1 : ::lseek(file_.number(), begin, SEEK_HOLE);
    const bool isHoleToTheEnd = begin < 0 && errno == ENXIO;
    dataBegins_ = isHoleToTheEnd ? std::max(static_cast<std::int64_t>(size()), position_)
                  : end < 0      ? position_
                                 : begin;
    dataEnds_ = end < 0 ? INT64_MAX : end;
    if (begin >= 0 && ::lseek(file_.number(), position_, SEEK_SET) < 0)
        throw FileFault("Cannot read", path_, errno);
}

std::size_t FileHandle::moveTo(FileHandle& destination, std::size_t most, std::span<char> room)
{
    if (position_ >= dataEnds_)
        lookForData();
    std::size_t count = 0;
    if (position_ < dataBegins_) {
        count = std::min(most, static_cast<std::size_t>(dataBegins_ - position_));
        const auto distance = static_cast<off_t>(count);
        if (::lseek(file_.number(), distance, SEEK_CUR) < 0)
            throw FileFault("Cannot read", path_, errno);
        if (::lseek(destination.file_.number(), distance, SEEK_CUR) < 0)
            throw FileFault("Cannot write to", destination.path_, errno);
        destination.hasHoles_ = true;
    } else {
        const auto left = static_cast<std::uint64_t>(dataEnds_ - position_);
        count = moveBytes(destination, std::min<std::uint64_t>(most, left), room);
    }
    position_ += static_cast<std::int64_t>(count);
    return count;
}

void FileHandle::endHere()
{
    if (!hasHoles_)
        return;
    const off_t end = ::lseek(file_.number(), 0, SEEK_CUR);
    if (end < 0 || ::ftruncate(file_.number(), end) != 0)
        throw FileFault("Cannot write to", path_, errno);
}

std::size_t FileHandle::moveBytes(FileHandle& destination, std::size_t most, std::span<char> room)
{
    while (movesInside_) {
        const ssize_t count = ::copy_file_range(file_.number(), nullptr, destination.file_.number(),
                                                nullptr, most, 0);
        if (count > 0)
            return static_cast<std::size_t>(count);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && !meansNotSupported(errno))
            throw FileFault(("Cannot copy " + path_.string() + " to").c_str(), destination.path_,
                            errno);
        // Nothing moved may also mean a file that the system makes up as it is read.
        movesInside_ = false;
    }
    const std::size_t count = read(room.first(std::min(room.size(), most)));
    destination.write({room.data(), count});
    return count;
}

bool FileHandle::isInPlace() const noexcept
{
    const auto mine = identityOf(file_);
    return mine && identityAt(AT_FDCWD, path_.c_str()) == mine;
}

void FileHandle::discard() noexcept
{
    const char* name = path_.c_str() + (path_.native().rfind('/') + 1);
    if (!folder_.isOpen())
        return;
    const auto there = identityAt(folder_.number(), name);
    // What cannot be looked at is what was made there: its name was free then.
    if (there ? there == identity_ : errno != ENOENT)
        ::unlinkat(folder_.number(), name, 0);
}

void FileHandle::close()
{
    // EINTR leaves the descriptor closed on Linux; nothing is known to be lost then.
    if (file_.isOpen() && ::close(file_.release()) != 0 && errno != EINTR)
        throw FileFault("Cannot finish writing to", path_, errno);
}

} // namespace stowline::platform
