// Exercises packing and sealing: any content comes back as it was, whatever the pieces in which it
// comes and goes, and is refused when a byte of what is stored was changed. The first byte chooses
// pieces, threads and compression; the rest, repeated, is the content.
#include "stowline/backup/content/ContentUnsealer.h"

#include <cstdlib>

namespace {

using namespace stowline;

const backup::MasterKey& someKey()
{
    static const backup::MasterKey key = backup::MasterKey::make();
    return key;
}

/// @return what came, when all of it did
std::optional<std::string> opened(const std::string& identifier, std::string_view stored,
                                  std::size_t piece, unsigned threads)
{
    std::string content;
    try {
        backup::ContentUnsealer unsealer(
            someKey(), identifier, [&](std::string_view bytes) { content += bytes; }, threads);
        for (std::size_t at = 0; at < stored.size(); at += piece)
            unsealer.feed(stored.substr(at, piece));
        unsealer.finish();
    } catch (const backup::ContentFault&) {
        return std::nullopt;
    }
    return content;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned choice = bytes[0];
    const std::string_view some(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    std::string content;
    for (unsigned i = 0; i <= (choice >> 5); ++i)
        content += some;
    const std::size_t piece = 1 + std::size_t(choice) * 37;
    const unsigned threads = 1 + (choice & 1);
    using Mode = backup::Compression::Mode;
    const Mode mode = (choice & 2) != 0   ? Mode::off
                      : (choice & 4) != 0 ? Mode::automatic
                                          : Mode::level;

    std::string stored;
    backup::ContentSealer sealer(someKey(),
                                 {.compression = {.mode = mode, .level = 1},
                                  .threads = threads,
                                  .chunkExponent = backup::kLeastChunkExponent},
                                 [&](std::string_view sealed) { stored += sealed; });
    for (std::size_t at = 0; at < content.size(); at += piece)
        sealer.write(std::string_view(content).substr(at, piece));
    sealer.finish();

    const std::string& identifier = sealer.head().identifier;
    if (opened(identifier, stored, piece, threads) != content)
        std::abort();
    const std::size_t place = (content.size() * 31 + choice) % stored.size();
    stored[place] = static_cast<char>(stored[place] ^ (1 << (choice & 7)));
    if (opened(identifier, stored, piece, threads))
        std::abort();
    return 0;
}
