// CRC-32 checksums of bytes, of streams and of files.
#pragma once

#include "stowline/platform/values/Value.h"
#include "stowline/util/Progress.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// The CRC-32 of IEEE 802.3 (that of Ethernet, PNG and gzip): polynomial 0xEDB88320 reflected,
/// register and result inverted, least significant bit first. The checksum of no bytes is 0; that
/// of the text "123456789" is 3421780262.
///
/// Static operations only; any thread.
class Crc32 {
public:
    Crc32() = delete;

    using Table = std::array<std::uint32_t, 256>;

    /// Entry i is i run through eight steps of the polynomial. Built on first use, then shared.
    [[nodiscard]] static const Table& standardCRC32Table();

    /// The checksum of what gave `runningChecksum`, followed by these bytes. Start with 0.
    /// @param bytes may be null when the length is 0
    [[nodiscard]] static std::uint32_t updateCRC32(std::uint32_t runningChecksum, const void* bytes,
                                                   std::size_t length);

    /// The same by one table lookup a byte: the definition, and slow.
    [[nodiscard]] static std::uint32_t updateCRC32ByTable(std::uint32_t runningChecksum,
                                                          const void* bytes, std::size_t length);

    [[nodiscard]] static std::uint32_t TW_crc32(const Data& buffer);
    [[nodiscard]] static std::uint32_t TW_crc32(std::string_view buffer);

    /// Checksum of a file, read in pieces of 64 KiB; memory stays the same whatever its size.
    ///
    /// Reports 0.0 first, then after every General::progressSizeForSize() bytes, then 1.0. A
    /// handler that stops it gets no further report, and the checksum is that of the bytes read so
    /// far: of no use to the caller. Progress goes beyond 1.0 only when the file grows meanwhile.
    /// @return 0 after the reports 0.0 and 1.0 when the file cannot be opened or is not a regular
    /// file
    ///         (a pipe would not end). A file that breaks off with a read error gives the checksum
    ///         of what came before it; checksumOfFile() tells.
    [[nodiscard]] static std::uint32_t
    crc32OfFileAtPath(const std::string& path, const ProgressHandler& progressHandler = {});

    /// What crc32OfFileAtPath() came to, for callers that must know whether it is whole.
    struct FileChecksum {
        std::uint32_t checksum = 0;
        std::uint64_t bytesRead = 0;
        bool wasStopped = false;
        std::optional<std::string> fault; ///< why the file could not be read to its end
    };

    /// crc32OfFileAtPath() with everything it learnt; same reports.
    [[nodiscard]] static FileChecksum checksumOfFile(const std::string& path,
                                                     const ProgressHandler& progressHandler = {});
};

} // namespace stowline
#pragma GCC visibility pop
