#include "tests/support/MountNamespace.h"

#include <cerrno>
#include <sched.h>
#include <sys/mount.h>
#include <system_error>

namespace stowline::test {

std::optional<std::string> enterMountNamespace()
{
    if (::unshare(CLONE_NEWNS) != 0)
        return "This user may not make a mount namespace.";
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return "The mounts of this machine cannot be made private.";
    return std::nullopt;
}

Mount Mount::memory(const std::filesystem::path& folder, const std::string& options)
{
    return {"memory", folder, "tmpfs", 0, options};
}

Mount Mount::plainMemory(const std::filesystem::path& folder)
{
    return {"memory", folder, "ramfs", 0, {}};
}

Mount Mount::again(const std::filesystem::path& shown, const std::filesystem::path& folder)
{
    return {shown.c_str(), folder, nullptr, MS_BIND, {}};
}

Mount::Mount(const char* source, std::filesystem::path folder, const char* type,
             unsigned long flags, const std::string& options)
    : folder_(std::move(folder))
{
    std::filesystem::create_directories(folder_);
    if (::mount(source, folder_.c_str(), type, flags, options.c_str()) != 0)
        throw std::system_error(errno, std::generic_category(), "mounting " + folder_.string());
}

Mount::~Mount()
{
    ::umount2(folder_.c_str(), MNT_DETACH);
}

} // namespace stowline::test
