#include "stowline/platform/files/Files.h"

#include "stowline/platform/files/FileDescriptor.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

std::optional<std::filesystem::path> baseFolder(const char* variable, const char* belowHome)
{
    const char* set = std::getenv(variable);
    if (set && std::filesystem::path(set).is_absolute())
        return std::filesystem::path(set) / "stowline";
    const char* home = std::getenv("HOME");
    if (!home || *home == '\0')
        return std::nullopt;
    return std::filesystem::path(home) / belowHome / "stowline";
}

/// Makes a file beside a path, with a lock that tells removeLeftWrites() that somebody is at it.
FileDescriptor makeBeside(const std::filesystem::path& path, std::string& beside, int& error)
{
    for (;;) {
        beside = path.string() + ".XXXXXX";
        FileDescriptor file(::mkostemp(beside.data(), O_CLOEXEC));
        error = errno;
        if (!file.isOpen())
            return file;
        (void)::flock(file.number(), LOCK_EX); // where there are no locks nobody takes it away
        struct stat status = {};
        if (::fstat(file.number(), &status) != 0 || status.st_nlink > 0)
            return file;
    }
}

bool writeAndRename(const std::filesystem::path& path, std::string_view content, bool isDurable,
                    int& error)
{
    std::string beside;
    const FileDescriptor file = makeBeside(path, beside, error);
    if (!file.isOpen())
        return false;
    const bool isComplete =
        writeAll(file.number(), content) && (!isDurable || ::fsync(file.number()) == 0);
    if (isComplete && ::rename(beside.c_str(), path.c_str()) == 0)
        return true;
    error = errno;
    ::unlink(beside.c_str());
    return false;
}

} // namespace

std::optional<std::string> readFile(const std::filesystem::path& path)
{
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    return file.isOpen() ? readToEnd(file.number()) : std::nullopt;
}

std::optional<std::string> readRegularFile(const std::filesystem::path& path)
{
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status = {};
    if (!file.isOpen() || ::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return readToEnd(file.number());
}

bool writeFileAtomically(const std::filesystem::path& path, std::string_view content)
{
    int unimportant = 0;
    return writeAndRename(path, content, true, unimportant);
}

bool replaceFile(const std::filesystem::path& path, std::string_view content, int& error)
{
    return writeAndRename(path, content, false, error);
}

bool replaceFile(const std::filesystem::path& path, std::string_view content)
{
    int unimportant = 0;
    return replaceFile(path, content, unimportant);
}

std::vector<std::string> namesInFolder(const std::filesystem::path& folder)
{
    int unimportant = 0;
    return namesInFolder(folder, unimportant);
}

std::vector<std::string> namesInFolder(const std::filesystem::path& folder, int& error)
{
    struct Closer {
        void operator()(DIR* open) const { ::closedir(open); }
    };
    const std::unique_ptr<DIR, Closer> open(::opendir(folder.c_str()));
    std::vector<std::string> names;
    error = open ? 0 : errno;
    while (open) {
        errno = 0; // readdir(3): what tells an end from a failure
        const dirent* entry = ::readdir(open.get());
        if (!entry) {
            error = errno;
            break;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    return names;
}

bool makePrivateFolder(const std::filesystem::path& folder, int& error)
{
    std::error_code fault;
    if (std::filesystem::is_directory(folder, fault))
        return true;
    if (folder.has_parent_path() && folder.parent_path() != folder &&
        !makePrivateFolder(folder.parent_path(), error))
        return false;
    if (::mkdir(folder.c_str(), S_IRWXU) == 0)
        return true;
    error = errno;
    return std::filesystem::is_directory(folder, fault);
}

bool makePrivateFolder(const std::filesystem::path& folder)
{
    int unimportant = 0;
    return makePrivateFolder(folder, unimportant);
}

std::optional<std::filesystem::path> configurationFolder()
{
    return baseFolder("XDG_CONFIG_HOME", ".config");
}

std::optional<std::filesystem::path> stateFolder()
{
    return baseFolder("XDG_STATE_HOME", ".local/state");
}

} // namespace stowline::platform
