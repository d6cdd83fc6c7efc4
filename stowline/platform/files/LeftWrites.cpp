#include "stowline/platform/files/LeftWrites.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/files/Files.h"

#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

bool isLeftName(std::string_view name)
{
    constexpr std::size_t letters = 6; // of mkstemp(3)
    constexpr std::string_view drawn =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    return name.size() > letters + 1 && name[name.size() - letters - 1] == '.' &&
           name.substr(name.size() - letters).find_first_not_of(drawn) == std::string_view::npos;
}

} // namespace

void removeLeftWrites(const fs::path& folder)
{
    for (const std::string& name : namesInFolder(folder)) {
        if (!isLeftName(name))
            continue;
        const fs::path path = folder / name;
        const FileDescriptor file(
            ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
        struct stat status = {};
        if (file.isOpen() && ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode) &&
            ::flock(file.number(), LOCK_EX | LOCK_NB) == 0)
            ::unlink(path.c_str());
    }
}

} // namespace stowline::platform
