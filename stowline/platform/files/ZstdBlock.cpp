#include "stowline/platform/files/ZstdBlock.h"

#include <new>
#include <zstd.h>
#include <zstd_errors.h>

namespace stowline::platform {

namespace {

constexpr std::string_view kFrameMagic = "\x28\xb5\x2f\xfd"; // RFC 8878 section 3.1.1

/// @return the library's result when it is not an error; throws where memory is wanting
std::optional<std::size_t> settled(std::size_t result)
{
    if (!::ZSTD_isError(result))
        return result;
    if (::ZSTD_getErrorCode(result) == ZSTD_error_memory_allocation)
        throw std::bad_alloc();
    return std::nullopt;
}

} // namespace

struct ZstdPacker::State {
    explicit State(int itsLevel) : level(itsLevel)
    {
        if (!context)
            throw std::bad_alloc();
    }

    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> context{::ZSTD_createCCtx(),
                                                                 ::ZSTD_freeCCtx};
    int level;
};

ZstdPacker::ZstdPacker(int level) : state_(std::make_unique<State>(level)) {}
ZstdPacker::ZstdPacker(ZstdPacker&&) noexcept = default;
ZstdPacker& ZstdPacker::operator=(ZstdPacker&&) noexcept = default;
ZstdPacker::~ZstdPacker() = default;

std::optional<std::size_t> ZstdPacker::pack(std::string_view block, char* to, std::size_t capacity)
{
    return settled(::ZSTD_compressCCtx(state_->context.get(), to, capacity, block.data(),
                                       block.size(), state_->level));
}

std::optional<std::string> unpackedZstd(std::string_view frame, std::size_t mostBytes)
{
    // A frame that readers skip would be a block of no bytes (RFC 8878 section 3.1.2).
    if (!frame.starts_with(kFrameMagic))
        return std::nullopt;
    const unsigned long long told = ::ZSTD_getFrameContentSize(frame.data(), frame.size());
    if (told == ZSTD_CONTENTSIZE_UNKNOWN || told == ZSTD_CONTENTSIZE_ERROR || told > mostBytes ||
        settled(::ZSTD_findFrameCompressedSize(frame.data(), frame.size())) != frame.size())
        return std::nullopt;
    std::string block(static_cast<std::size_t>(told), '\0');
    if (settled(::ZSTD_decompress(block.data(), block.size(), frame.data(), frame.size())) !=
        block.size())
        return std::nullopt;
    return block;
}

} // namespace stowline::platform
