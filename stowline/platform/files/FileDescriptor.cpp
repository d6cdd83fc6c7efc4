#include "stowline/platform/files/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stowline::platform {

void FileDescriptor::close()
{
    if (number_ >= 0)
        ::close(std::exchange(number_, -1));
}

namespace {

/// A private file that has no name, where the system makes none in memory.
FileDescriptor namelessFile()
{
    for (const char* folder : {"/dev/shm", "/tmp", "/var/tmp"}) {
        FileDescriptor file(
            ::open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, S_IRUSR | S_IWUSR));
        if (file.isOpen() || errno == EMFILE || errno == ENFILE)
            return file;
        std::string name = std::string(folder) + "/stowline-XXXXXX";
        file = FileDescriptor(::mkostemp(name.data(), O_CLOEXEC)); // which makes it private
        if (file.isOpen()) {
            ::unlink(name.c_str());
            return file;
        }
    }
    return {};
}

} // namespace

FileDescriptor anonymousFileHolding(std::string_view content)
{
    FileDescriptor file(::memfd_create("stowline", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file.isOpen() && errno != EMFILE && errno != ENFILE)
        file = namelessFile();
    if (!file.isOpen() || !writeAll(file.number(), content))
        return {};
    ::fcntl(file.number(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
    ::lseek(file.number(), 0, SEEK_SET);
    return file;
}

bool writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::optional<std::string> readToEnd(int descriptor)
{
    constexpr std::size_t smallest = 4096; // most are small, and memory that is touched costs time
    constexpr std::size_t largest = 65536;
    std::string bytes;
    std::size_t used = 0;
    for (;;) {
        if (used == bytes.size())
            bytes.resize(used + std::clamp(used, smallest, largest));
        const ssize_t count = ::read(descriptor, bytes.data() + used, bytes.size() - used);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        used += static_cast<std::size_t>(count);
    }
    bytes.resize(used);
    return bytes;
}

} // namespace stowline::platform
