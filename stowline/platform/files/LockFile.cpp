#include "stowline/platform/files/LockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace stowline::platform {

std::optional<LockFile> LockFile::take(const std::filesystem::path& path)
{
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.isOpen() || ::flock(file.number(), LOCK_EX | LOCK_NB) != 0)
        return std::nullopt;
    return LockFile(std::move(file));
}

} // namespace stowline::platform
