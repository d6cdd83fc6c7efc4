#include "stowline/platform/files/AppendFile.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

constexpr int kOpenFlags = O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;

bool isRegular(const FileDescriptor& file)
{
    struct stat found = {};
    return ::fstat(file.number(), &found) == 0 && S_ISREG(found.st_mode);
}

/// The whole file, for writing.
struct flock wholeFile()
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/// File systems without locks have nobody to tell; then it counts as taken.
bool takeLock(const FileDescriptor& file)
{
    struct flock lock = wholeFile();
    return ::fcntl(file.number(), F_OFD_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES);
}

} // namespace

bool AppendFile::create(const std::filesystem::path& path)
{
    return FileDescriptor(
               ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | kOpenFlags, S_IRUSR | S_IWUSR))
        .isOpen();
}

std::optional<AppendFile> AppendFile::open(const std::filesystem::path& path)
{
    FileDescriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | kOpenFlags));
    if (!file.isOpen() || !isRegular(file) || !takeLock(file))
        return std::nullopt;
    return AppendFile(std::move(file));
}

bool AppendFile::isInUse(const std::filesystem::path& path)
{
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | kOpenFlags));
    struct flock lock = wholeFile();
    return file.isOpen() && ::fcntl(file.number(), F_OFD_GETLK, &lock) == 0 &&
           lock.l_type != F_UNLCK;
}

void AppendFile::removeUnlessInUse(const std::filesystem::path& path)
{
    // The lock is held to the end: who opens it meanwhile finds it in use.
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | kOpenFlags));
    if (!file.isOpen() || takeLock(file))
        (void)::unlink(path.c_str());
}

std::optional<std::uint64_t> AppendFile::linkedSize() const
{
    // Asking for the times as well (fstat) would make the kernel note an exact time of change with
    // the next write, which takes longer than the write itself.
    struct statx found = {};
    if (::statx(file_.number(), "", AT_EMPTY_PATH, STATX_NLINK | STATX_SIZE, &found) != 0 ||
        found.stx_nlink == 0)
        return std::nullopt;
    return found.stx_size;
}

bool AppendFile::append(std::string_view bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(file_.number(), bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    if (done == bytes.size())
        return true;
    // Half a line is worse than none.
    const off_t end = done == 0 ? -1 : ::lseek(file_.number(), 0, SEEK_END);
    if (end >= static_cast<off_t>(done))
        (void)!::ftruncate(file_.number(), end - static_cast<off_t>(done));
    return false;
}

void AppendFile::synchronize()
{
    (void)::fdatasync(file_.number());
}

} // namespace stowline::platform
