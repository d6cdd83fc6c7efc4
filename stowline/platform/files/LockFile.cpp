#include "stowline/platform/files/LockFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace stowline::platform {

std::optional<LockFile> LockFile::take(const std::filesystem::path& path, int& error)
{
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file.isOpen() && ::flock(file.number(), LOCK_EX | LOCK_NB) == 0)
        return LockFile(std::move(file));
    error = errno == EWOULDBLOCK ? 0 : errno;
    return std::nullopt;
}

std::optional<LockFile> LockFile::take(const std::filesystem::path& path)
{
    int unimportant = 0;
    return take(path, unimportant);
}

} // namespace stowline::platform
