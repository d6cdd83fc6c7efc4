// Exercises the reader of sealed content: whatever the service sends is the content or is refused.
// An input is first what is stored, as it is; then, because without the key nothing gets past the
// first box, what is in the boxes: each line becomes the payload of a genuine frame, the last one
// of the last chunk, and each is also the payload of a genuine table.
#include "stowline/backup/content/ContentUnsealer.h"

#include <cstdlib>
#include <vector>

namespace {

using namespace stowline;
using backup::ContentFault;
using backup::FrameMark;

const backup::MasterKey& someKey()
{
    static const backup::MasterKey key{platform::SecretBytes(platform::kSealingKeySize)};
    return key;
}

backup::SealedHead someHead()
{
    return {.chunkExponent = backup::kLeastChunkExponent,
            .keyName = someKey().name(),
            .identifier = std::string(backup::kContentIdentifierSize, 'i')};
}

/// @return whether it was opened to its end
bool isOpened(std::string_view stored, std::size_t piece, std::string& content)
{
    try {
        backup::ContentUnsealer unsealer(someKey(), someHead().identifier,
                                         [&](std::string_view bytes) { content += bytes; });
        for (std::size_t at = 0; at < stored.size(); at += piece)
            unsealer.feed(stored.substr(at, piece));
        unsealer.finish();
        return true;
    } catch (const ContentFault&) {
        return false;
    }
}

std::vector<std::string_view> lines(std::string_view input)
{
    std::vector<std::string_view> all;
    for (;;) {
        const auto end = input.find('\n');
        all.push_back(input.substr(0, end));
        if (end == std::string_view::npos)
            return all;
        input.remove_prefix(end + 1);
    }
}

/// Frames around payloads that only who has the key can make.
void openFramed(std::string_view input)
{
    const auto key = someKey().contentKey(someHead().identifier);
    const backup::FrameSealer sealer(someHead(), key);
    const auto payloads = lines(input);
    std::string stored = someHead().bytes();
    std::string lengths;
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        const std::size_t start = stored.size();
        sealer.append(stored, i + 1 == payloads.size() ? FrameMark::lastChunk : FrameMark::chunk, i,
                      payloads[i]);
        backup::appendNumber(lengths, stored.size() - start, 4);
    }
    std::string withWrongTable = stored;
    sealer.append(withWrongTable, FrameMark::table, payloads.size(), input.substr(0, 4));
    sealer.append(stored, FrameMark::table, payloads.size(), lengths);
    std::string content;
    if (isOpened(stored, 7, content) &&
        backup::chunkCount(someHead(), content.size()) != payloads.size())
        std::abort();
    std::string other;
    if (isOpened(withWrongTable, 4096, other) && input.substr(0, 4) != lengths)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(bytes), size);
    std::string content;
    // Nothing is genuine that was not sealed with the key.
    if (isOpened(input, 13, content) || !content.empty())
        std::abort();
    if (isOpened(someHead().bytes() + std::string(input), 4096, content) || !content.empty())
        std::abort();
    openFramed(input);
    return 0;
}
