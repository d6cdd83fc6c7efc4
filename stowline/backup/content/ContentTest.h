// What the tests of sealed content share.
#pragma once

#include "stowline/backup/content/ContentUnsealer.h"

#include <optional>
#include <string>

namespace stowline::backup {

/// Bytes that do not shrink, always the same.
inline std::string noise(std::size_t size)
{
    std::string bytes;
    bytes.reserve(size);
    std::uint64_t state = 88172645463325252U;
    while (bytes.size() < size) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        bytes += static_cast<char>(state >> 24 & 0xff);
    }
    return bytes;
}

/// Text that shrinks.
inline std::string prose(std::size_t size)
{
    std::string text;
    for (int line = 0; text.size() < size; ++line)
        text += "line " + std::to_string(line) + " of a text that shrinks\n";
    text.resize(size);
    return text;
}

struct Sealed {
    std::string bytes;
    SealedHead head;
    PackingTally tally;
};

/// Seals in chunks of 4 KiB unless the plan says otherwise.
inline Sealed sealed(const MasterKey& key, std::string_view content,
                     const SealingPlan& plan = {.chunkExponent = kLeastChunkExponent},
                     std::size_t piece = 1000)
{
    Sealed result;
    ContentSealer sealer(key, plan, [&](std::string_view bytes) { result.bytes += bytes; });
    for (; !content.empty(); content.remove_prefix(std::min(piece, content.size())))
        sealer.write(content.substr(0, piece));
    sealer.finish();
    result.head = sealer.head();
    result.tally = sealer.tally();
    return result;
}

struct Opened {
    std::string content;
    std::optional<ContentFault::Kind> fault; ///< absent: all of it came
};

inline Opened opened(const MasterKey& key, const std::string& identifier, std::string_view stored,
                     std::size_t piece = 777, unsigned threads = 1)
{
    Opened result;
    try {
        ContentUnsealer unsealer(
            key, identifier, [&](std::string_view bytes) { result.content += bytes; }, threads);
        for (; !stored.empty(); stored.remove_prefix(std::min(piece, stored.size())))
            unsealer.feed(stored.substr(0, piece));
        unsealer.finish();
    } catch (const ContentFault& fault) {
        result.fault = fault.kind();
    }
    return result;
}

} // namespace stowline::backup
