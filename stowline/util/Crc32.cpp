#include "stowline/util/Crc32.h"

#include "stowline/platform/desktop/CyclicChecksum.h"
#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/text/Text.h"
#include "stowline/util/General.h"

#include <algorithm>
#include <filesystem>
#include <span>

namespace stowline {

namespace {

using platform::FileFault;
using platform::FileHandle;

constexpr std::size_t kPiece = 65536;

constexpr Crc32::Table makeTable()
{
    constexpr std::uint32_t polynomial = 0xEDB88320;
    Crc32::Table table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t entry = i;
        for (int step = 0; step < 8; ++step)
            entry = (entry >> 1) ^ ((entry & 1) != 0 ? polynomial : 0);
        table[i] = entry;
    }
    return table;
}

/// 0 when it cannot be told, as of a pipe.
std::uint64_t attributeSize(const std::string& path)
{
    std::error_code fault;
    const auto size = std::filesystem::file_size(path, fault);
    return fault ? 0 : size;
}

std::optional<FileHandle> opened(const std::string& path, std::optional<std::string>& fault)
{
    try {
        return FileHandle::forReading(path);
    } catch (const FileFault& refused) {
        fault = refused.what();
        return std::nullopt;
    }
}

/// @return bytes read into the room; 0 at the end, or with a fault
std::size_t readPiece(std::optional<FileHandle>& file, std::span<char> room,
                      std::optional<std::string>& fault)
{
    if (!file)
        return 0;
    try {
        return file->read(room);
    } catch (const FileFault& broken) {
        fault = broken.what();
        return 0;
    }
}

} // namespace

const Crc32::Table& Crc32::standardCRC32Table()
{
    static const Table table = makeTable();
    return table;
}

std::uint32_t Crc32::updateCRC32ByTable(std::uint32_t runningChecksum, const void* bytes,
                                        std::size_t length)
{
    const Table& table = standardCRC32Table();
    std::uint32_t checksumRegister = ~runningChecksum;
    for (const unsigned char byte : std::span(static_cast<const unsigned char*>(bytes), length))
        checksumRegister = (checksumRegister >> 8) ^ table[(checksumRegister ^ byte) & 0xFF];
    return ~checksumRegister;
}

std::uint32_t Crc32::updateCRC32(std::uint32_t runningChecksum, const void* bytes,
                                 std::size_t length)
{
    return platform::continuedCrc32(runningChecksum, bytes, length);
}

std::uint32_t Crc32::TW_crc32(const Data& buffer)
{
    return updateCRC32(0, buffer.data(), buffer.size());
}

std::uint32_t Crc32::TW_crc32(std::string_view buffer)
{
    return updateCRC32(0, buffer.data(), buffer.size());
}

std::uint32_t Crc32::crc32OfFileAtPath(const std::string& path,
                                       const ProgressHandler& progressHandler)
{
    return checksumOfFile(path, progressHandler).checksum;
}

Crc32::FileChecksum Crc32::checksumOfFile(const std::string& path,
                                          const ProgressHandler& progressHandler)
{
    FileChecksum result;
    const std::uint64_t size = attributeSize(path);
    const auto report = [&](double fractionDone) {
        if (progressHandler)
            progressHandler(fractionDone, size, &result.wasStopped);
    };
    report(0.0);
    auto file = result.wasStopped ? std::nullopt : opened(path, result.fault);
    const std::uint64_t step = General::progressSizeForSize(size);
    std::uint64_t reported = 0;
    Data room(kPiece);
    const std::span<char> bytes(reinterpret_cast<char*>(room.data()), room.size());
    while (!result.wasStopped) {
        const std::size_t count = readPiece(file, bytes, result.fault);
        if (count == 0)
            break;
        result.checksum = updateCRC32(result.checksum, room.data(), count);
        result.bytesRead += count;
        if (size != 0 && result.bytesRead - reported >= step) {
            reported = result.bytesRead;
            report(std::min(1.0, static_cast<double>(reported) / static_cast<double>(size)));
        }
    }
    if (!result.wasStopped)
        report(1.0);
    return result;
}

} // namespace stowline
