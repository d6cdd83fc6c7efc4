#include "stowline/backup/content/SealedForm.h"

#include "stowline/backup/content/MasterKey.h"

#include <algorithm>

namespace stowline::backup {

namespace {

constexpr std::string_view kMagic = "stowline sealed\n";
constexpr char kForm = 1;
constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kPositionSize = 8;

// Head: magic, form, exponent, zeros up to 24, name of the key, identifier.
constexpr std::size_t kFormPlace = 16;
constexpr std::size_t kExponentPlace = 17;
constexpr std::size_t kZerosPlace = 18;
constexpr std::size_t kKeyNamePlace = 24;
constexpr std::size_t kIdentifierPlace = kKeyNamePlace + kKeyNameSize;
static_assert(kIdentifierPlace + kContentIdentifierSize == kSealedHeadSize);

[[noreturn]] void throwDamaged()
{
    throw ContentFault(ContentFault::Kind::damaged, "It is not what was sealed.");
}

} // namespace

void appendNumber(std::string& to, std::uint64_t number, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        to += static_cast<char>(number >> (8 * i) & 0xff);
}

std::uint64_t numberOf(std::string_view bytes)
{
    std::uint64_t number = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

std::string SealedHead::bytes() const
{
    std::string bytes(kMagic);
    bytes += kForm;
    bytes += static_cast<char>(chunkExponent);
    bytes.resize(kKeyNamePlace, '\0');
    return bytes + keyName + identifier;
}

SealedHead SealedHead::parsed(std::string_view bytes)
{
    if (bytes.size() != kSealedHeadSize || !bytes.starts_with(kMagic))
        throw ContentFault(ContentFault::Kind::notSealed, "It is not sealed content.");
    if (bytes[kFormPlace] != kForm)
        throw ContentFault(ContentFault::Kind::tooNew,
                           "It is sealed in a form that this program does not know.");
    SealedHead head;
    head.chunkExponent = static_cast<unsigned char>(bytes[kExponentPlace]);
    head.keyName = bytes.substr(kKeyNamePlace, kKeyNameSize);
    head.identifier = bytes.substr(kIdentifierPlace);
    const auto zeros = bytes.substr(kZerosPlace, kKeyNamePlace - kZerosPlace);
    if (head.chunkExponent < kLeastChunkExponent || head.chunkExponent > kMostChunkExponent ||
        zeros.find_first_not_of('\0') != std::string_view::npos)
        throwDamaged();
    return head;
}

std::string FrameSealer::associated(FrameMark mark, std::uint64_t position) const
{
    std::string bytes = head_;
    appendNumber(bytes, static_cast<std::uint64_t>(mark), 1);
    appendNumber(bytes, position, kPositionSize);
    return bytes;
}

void FrameSealer::append(std::string& to, FrameMark mark, std::uint64_t position,
                         std::string_view payload) const
{
    appendNumber(to, static_cast<std::uint64_t>(mark), 1);
    appendNumber(to, payload.size() + platform::kSealingOverhead, kLengthSize);
    platform::appendSealedBox(to, payload, associated(mark, position), key_);
}

bool FrameSealer::open(std::string& payload, FrameMark mark, std::uint64_t position,
                       std::string_view box) const
{
    return platform::openSealedBox(payload, box, associated(mark, position), key_);
}

std::uint64_t chunkCount(const SealedHead& head, std::uint64_t contentSize)
{
    const std::uint64_t whole = contentSize >> head.chunkExponent;
    const bool hasRest = (contentSize & (head.chunkSize() - 1)) != 0;
    return std::max<std::uint64_t>(1, whole + (hasRest ? 1 : 0));
}

std::uint64_t tableFrameSize(std::uint64_t chunks)
{
    return kFrameHeadSize + platform::kSealingOverhead + kLengthSize * chunks;
}

ChunkTable ChunkTable::opened(const FrameSealer& sealer, std::uint64_t chunks,
                              std::string_view frame)
{
    std::string lengths;
    if (chunks == 0 || chunks > kMostChunks || frame.size() != tableFrameSize(chunks) ||
        numberOf(frame.substr(0, 1)) != static_cast<std::uint64_t>(FrameMark::table) ||
        numberOf(frame.substr(1, kLengthSize)) != frame.size() - kFrameHeadSize ||
        !sealer.open(lengths, FrameMark::table, chunks, frame.substr(kFrameHeadSize)))
        throwDamaged();
    ChunkTable table;
    table.offsets_.reserve(static_cast<std::size_t>(chunks) + 1);
    std::uint64_t offset = kSealedHeadSize;
    table.offsets_.push_back(offset);
    for (std::size_t i = 0; i < chunks; ++i) {
        offset += numberOf(std::string_view(lengths).substr(i * kLengthSize, kLengthSize));
        table.offsets_.push_back(offset);
    }
    return table;
}

} // namespace stowline::backup
