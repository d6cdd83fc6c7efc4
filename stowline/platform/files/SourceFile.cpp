#include "stowline/platform/files/SourceFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;

StatusTime timeOf(const struct timespec& time)
{
    return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec)};
}

int openedIn(int folder, const std::string& name)
{
    const int at = folder == SourceFile::kNoFolder ? AT_FDCWD : folder;
    // Only the owner of a file may leave its access time alone.
    const int file = ::openat(at, name.c_str(), kReading | O_NOATIME);
    return file >= 0 || errno != EPERM ? file : ::openat(at, name.c_str(), kReading);
}

} // namespace

const int SourceFile::kCancelled = ECANCELED;
const int SourceFile::kUnreadable = EIO;
const int SourceFile::kTooLarge = EFBIG;

std::optional<SourceFile> SourceFile::open(int folder, const std::string& name, int& error)
{
    if (name.find('\0') != std::string::npos) {
        error = EINVAL;
        return std::nullopt;
    }
    FileDescriptor file(openedIn(folder, name));
    if (!file.isOpen()) {
        error = errno;
        return std::nullopt;
    }
    return of(std::move(file), error);
}

std::optional<SourceFile> SourceFile::of(FileDescriptor file, int& error)
{
    struct stat status = {};
    if (::fstat(file.number(), &status) != 0) {
        error = errno;
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = EINVAL;
        return std::nullopt;
    }
    (void)::posix_fadvise(file.number(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return SourceFile(std::move(file));
}

std::optional<SourceFile> SourceFile::again(int& error) const
{
    FileDescriptor file(::fcntl(file_.number(), F_DUPFD_CLOEXEC, 0));
    if (!file.isOpen()) {
        error = errno;
        return std::nullopt;
    }
    return SourceFile(std::move(file));
}

std::optional<SourceFile> SourceFile::spooled(int descriptor, const std::filesystem::path& folder,
                                              const StopRequest& stop, int& error)
{
    auto spool = emptyIn(folder, error);
    std::string room(kCopyPiece, '\0');
    for (std::uint64_t at = 0; spool;) {
        struct pollfd waits[] = {{descriptor, POLLIN, 0}, {stop.descriptor(), POLLIN, 0}};
        if (::poll(waits, 2, -1) < 0 && errno == EINTR)
            continue;
        const ssize_t count =
            stop.isRequested() ? -1 : ::read(descriptor, room.data(), room.size());
        if (count < 0 && errno == EINTR && !stop.isRequested())
            continue;
        if (count == 0)
            return spool;
        error = stop.isRequested() ? kCancelled : errno;
        if (count < 0 || !spool->writeAt(at, {room.data(), static_cast<std::size_t>(count)}, error))
            return std::nullopt;
        at += static_cast<std::uint64_t>(count);
    }
    return std::nullopt;
}

std::optional<FileState> SourceFile::state() const
{
    struct stat status = {};
    if (::fstat(file_.number(), &status) != 0)
        return std::nullopt;
    return FileState{.size = static_cast<std::uint64_t>(status.st_size),
                     .modified = timeOf(status.st_mtim),
                     .changed = timeOf(status.st_ctim),
                     .inode = status.st_ino,
                     .device = status.st_dev};
}

std::optional<std::size_t> SourceFile::readAt(std::uint64_t offset, std::span<char> room,
                                              int& error) const
{
    const auto size = state();
    std::size_t done = 0;
    if (size && offset < size->size) {
        // ENXIO: nothing but a hole up to the end.
        const off_t data = ::lseek(file_.number(), static_cast<off_t>(offset), SEEK_DATA);
        const std::uint64_t upTo = data >= 0        ? static_cast<std::uint64_t>(data)
                                   : errno == ENXIO ? size->size
                                                    : offset;
        done = static_cast<std::size_t>(std::min<std::uint64_t>(upTo - offset, room.size()));
        std::memset(room.data(), 0, done);
    }
    while (done < room.size()) {
        const ssize_t count = ::pread(file_.number(), room.data() + done, room.size() - done,
                                      static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            error = errno;
            return std::nullopt;
        }
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

std::optional<SourceFile> SourceFile::emptyIn(const std::filesystem::path& folder, int& error)
{
    FileDescriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file.isOpen() && (errno == EOPNOTSUPP || errno == EISDIR)) {
        std::string name = (folder / "spool-XXXXXX").string();
        file = FileDescriptor(::mkostemp(name.data(), O_CLOEXEC));
        if (file.isOpen())
            (void)::unlink(name.c_str());
    }
    if (!file.isOpen()) {
        error = errno;
        return std::nullopt;
    }
    return SourceFile(std::move(file));
}

bool SourceFile::writeAt(std::uint64_t offset, std::string_view bytes, int& error)
{
    while (!bytes.empty()) {
        const ssize_t count =
            ::pwrite(file_.number(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            error = errno;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
    return true;
}

bool SourceFile::referTo(SourceFile& copy) const
{
    return ::ioctl(copy.file_.number(), FICLONE, file_.number()) == 0;
}

} // namespace stowline::platform
