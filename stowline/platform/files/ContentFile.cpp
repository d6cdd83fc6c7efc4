#include "stowline/platform/files/ContentFile.h"

#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/files/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace stowline::platform {

namespace {

constexpr std::size_t kBlock = 4096;

bool isZeros(std::string_view bytes)
{
    // All are equal to their neighbour, and one is zero.
    return bytes.empty() ||
           (bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

} // namespace

ContentFile ContentFile::openOrCreate(const std::filesystem::path& path)
{
    constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    FileDescriptor file(::open(path.c_str(), flags, ownerOnly));
    if (!file.isOpen() && errno == ENOENT && makePrivateFolder(path.parent_path()))
        file = FileDescriptor(::open(path.c_str(), flags, ownerOnly));
    if (!file.isOpen())
        throw FileFault("Cannot open", path, errno);
    return {std::move(file), path};
}

std::optional<ContentFile> ContentFile::open(const std::filesystem::path& path)
{
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!file.isOpen() && (errno == ENOENT || errno == ENOTDIR))
        return std::nullopt;
    if (!file.isOpen())
        throw FileFault("Cannot open", path, errno);
    return ContentFile(std::move(file), path);
}

std::string ContentFile::stamp() const
{
    const struct stat found = status();
    return std::to_string(found.st_ino) + ":" + std::to_string(found.st_size) + ":" +
           std::to_string(found.st_mtim.tv_sec) + "." + std::to_string(found.st_mtim.tv_nsec) +
           ":" + std::to_string(found.st_ctim.tv_sec) + "." + std::to_string(found.st_ctim.tv_nsec);
}

std::uint64_t ContentFile::size() const
{
    return static_cast<std::uint64_t>(status().st_size);
}

struct ::stat ContentFile::status() const
{
    struct stat found = {};
    if (::fstat(file_.number(), &found) != 0)
        throw FileFault("Cannot get the status of", path_, errno);
    return found;
}

std::string ContentFile::read(std::uint64_t offset, std::size_t length) const
{
    std::string bytes(length, '\0');
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count = ::pread(file_.number(), bytes.data() + done, length - done,
                                      static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw FileFault("Cannot read", path_, errno);
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
}

void ContentFile::truncate(std::uint64_t size)
{
    if (::ftruncate(file_.number(), static_cast<off_t>(size)) != 0)
        throw FileFault("Cannot change the size of", path_, errno);
}

void ContentFile::writePiece(std::uint64_t offset, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count =
            ::pwrite(file_.number(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw FileFault("Cannot write to", path_, errno);
        bytes.remove_prefix(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
}

void ContentFile::write(std::uint64_t offset, std::string_view bytes)
{
    const std::uint64_t oldEnd = size();
    const std::uint64_t newEnd = offset + bytes.size();
    // Runs of bytes between blocks of zeros are written at once.
    std::size_t runStart = 0;
    for (std::size_t at = 0; at < bytes.size(); at += kBlock) {
        const std::string_view block = bytes.substr(at, kBlock);
        if (offset + at < oldEnd || !isZeros(block))
            continue;
        writePiece(offset + runStart, bytes.substr(runStart, at - runStart));
        runStart = at + block.size();
    }
    if (runStart < bytes.size())
        writePiece(offset + runStart, bytes.substr(runStart));
    if (newEnd > oldEnd && runStart == bytes.size())
        truncate(newEnd);
}

void ContentFile::read(const std::function<void(std::string_view)>& take) const
{
    constexpr std::uint64_t longestPiece = 1 << 18;
    std::vector<char> piece(std::min(size() + 1, longestPiece)); // one more, to see the end
    for (off_t offset = 0;;) {
        const ssize_t count = ::pread(file_.number(), piece.data(), piece.size(), offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw FileFault("Cannot read", path_, errno);
        if (count == 0)
            return;
        take({piece.data(), static_cast<std::size_t>(count)});
        offset += count;
    }
}

void ContentFile::synchronize()
{
    if (::fdatasync(file_.number()) != 0)
        throw FileFault("Cannot finish writing to", path_, errno);
}

void synchronizeFolder(const std::filesystem::path& folder)
{
    const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen() || ::fsync(opened.number()) != 0)
        throw FileFault("Cannot finish writing to", folder, errno);
}

} // namespace stowline::platform
