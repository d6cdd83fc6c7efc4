#include "stowline/platform/processes/BuildIdentity.h"

#include "stowline/platform/files/FileDescriptor.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>
#include <vector>

namespace stowline::platform {

namespace {

constexpr std::string_view kOwner{"Stowline\0", 9}; // with its NUL, as notes have it
constexpr std::size_t kIdentityBytes = 64;
constexpr std::size_t kMostSegments = 128;
constexpr std::size_t kMostNoteBytes = 65536;

/// @return whether every byte was there
bool readAt(int file, void* content, std::size_t count, std::uint64_t offset)
{
    return ::pread(file, content, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count);
}

constexpr std::size_t aligned(std::size_t bytes)
{
    return (bytes + 3) / 4 * 4;
}

/// The identity among the notes of one segment.
std::optional<std::string> identityAmong(std::string_view notes)
{
    ElfW(Nhdr) header;
    while (notes.size() >= sizeof header) {
        std::memcpy(&header, notes.data(), sizeof header);
        notes.remove_prefix(sizeof header);
        const std::size_t name = aligned(header.n_namesz);
        if (name > notes.size() || aligned(header.n_descsz) > notes.size() - name)
            return std::nullopt;
        if (notes.substr(0, header.n_namesz) == kOwner && header.n_descsz == kIdentityBytes)
            return std::string(notes.substr(name, kIdentityBytes));
        notes.remove_prefix(name + aligned(header.n_descsz));
    }
    return std::nullopt;
}

std::vector<ElfW(Phdr)> segmentsOf(int file)
{
    ElfW(Ehdr) header;
    if (!readAt(file, &header, sizeof header, 0) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_phentsize != sizeof(ElfW(Phdr)) || header.e_phnum > kMostSegments)
        return {};
    std::vector<ElfW(Phdr)> segments(header.e_phnum);
    if (!readAt(file, segments.data(), segments.size() * sizeof(ElfW(Phdr)), header.e_phoff))
        segments.clear();
    return segments;
}

} // namespace

std::optional<std::string> buildIdentityOfProgram(const std::string& path)
{
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen())
        return std::nullopt;
    for (const auto& segment : segmentsOf(file.number())) {
        if (segment.p_type != PT_NOTE || segment.p_filesz > kMostNoteBytes)
            continue;
        std::string notes(segment.p_filesz, '\0');
        if (!readAt(file.number(), notes.data(), notes.size(), segment.p_offset))
            continue;
        if (auto identity = identityAmong(notes))
            return identity;
    }
    return std::nullopt;
}

} // namespace stowline::platform
