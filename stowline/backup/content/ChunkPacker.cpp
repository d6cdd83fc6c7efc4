#include "stowline/backup/content/ChunkPacker.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace stowline::backup {

namespace {

constexpr std::size_t kFormSize = 1;
constexpr std::size_t kCountSize = 4;
/// A frame that saves less than a part in so many is not worth unpacking later.
constexpr std::size_t kLeastGain = 32;
constexpr unsigned kPatience = 4;
constexpr unsigned kTryEach = 16;

bool isAllZeros(std::string_view bytes)
{
    return !bytes.empty() && bytes.front() == '\0' &&
           std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

void putForm(std::string& payload, ChunkForm form)
{
    payload.assign(1, static_cast<char>(form));
}

} // namespace

std::optional<Compression> Compression::parsed(std::string_view text)
{
    if (text == "off")
        return Compression{.mode = Mode::off};
    if (text == "auto")
        return Compression{};
    int level = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), level);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size() ||
        level < platform::kLeastZstdLevel || level > platform::kMostZstdLevel)
        return std::nullopt;
    return Compression{.mode = Mode::level, .level = level};
}

ChunkPacker::ChunkPacker(const Compression& compression)
{
    if (compression.mode != Compression::Mode::off)
        packer_.emplace(compression.mode == Compression::Mode::level ? compression.level
                                                                     : platform::kUsualZstdLevel);
}

ChunkForm ChunkPacker::pack(std::string_view chunk, std::string& payload, bool mayPack)
{
    if (isAllZeros(chunk)) {
        putForm(payload, ChunkForm::zeros);
        appendNumber(payload, chunk.size(), kCountSize);
        return ChunkForm::zeros;
    }
    const std::size_t room = chunk.size() - std::min(chunk.size(), 1 + chunk.size() / kLeastGain);
    if (packer_ && mayPack && room > 0) {
        putForm(payload, ChunkForm::packed);
        payload.resize(kFormSize + room);
        if (const auto size = packer_->pack(chunk, payload.data() + kFormSize, room)) {
            payload.resize(kFormSize + *size);
            return ChunkForm::packed;
        }
    }
    putForm(payload, ChunkForm::plain);
    payload += chunk;
    return ChunkForm::plain;
}

std::optional<std::string> unpackedChunk(std::string_view payload, std::size_t mostBytes)
{
    if (payload.empty())
        return std::nullopt;
    const std::string_view bytes = payload.substr(kFormSize);
    switch (static_cast<ChunkForm>(payload.front())) {
    case ChunkForm::plain:
        return bytes.size() <= mostBytes ? std::optional<std::string>(bytes) : std::nullopt;
    case ChunkForm::packed:
        return platform::unpackedZstd(bytes, mostBytes);
    case ChunkForm::zeros:
        if (bytes.size() != kCountSize || numberOf(bytes) > mostBytes)
            return std::nullopt;
        return std::string(static_cast<std::size_t>(numberOf(bytes)), '\0');
    }
    return std::nullopt;
}

bool PackingHope::next()
{
    if (inVain_ < kPatience || ++skipped_ >= kTryEach) {
        skipped_ = 0;
        return true;
    }
    return false;
}

} // namespace stowline::backup
