#include "stowline/platform/values/BinaryPropertyListGuard.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace stowline::platform {

namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kDeepestNesting = 512;
constexpr std::uint64_t kMostContent = std::uint64_t(1) << 30;
constexpr std::uint64_t kFewestValuesAllowed = 65536;
/// A container that stands twice costs a byte or more for each value in it.
constexpr std::uint64_t kMostValuesPerByte = 4;

struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What an object amounts to once every reference below it is followed.
struct Expansion {
    std::uint64_t values = 0;
    std::uint64_t content = 0;
    std::size_t height = 0; ///< containers inside each other
};

class Guard {
public:
    explicit Guard(std::string_view bytes) : bytes_(bytes)
    {
        if (bytes.size() < kMagic.size() + kTrailerSize || !bytes.starts_with(kMagic))
            throw Refused("This is not a binary property list");
        const std::size_t trailer = bytes.size() - kTrailerSize;
        offsetSize_ = byteAt(trailer + 6);
        referenceSize_ = byteAt(trailer + 7);
        objectCount_ = number(trailer + 8, 8);
        top_ = number(trailer + 16, 8);
        offsetTable_ = number(trailer + 24, 8);
        const bool sane = offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 &&
                          referenceSize_ <= 8 && objectCount_ > 0 && top_ < objectCount_ &&
                          offsetTable_ >= kMagic.size() && offsetTable_ <= trailer &&
                          objectCount_ <= (trailer - offsetTable_) / offsetSize_;
        if (!sane)
            throw Refused("The binary property list is cut or damaged");
        state_.resize(objectCount_, State::unseen);
        expansion_.resize(objectCount_);
        mostValues_ =
            std::max<std::uint64_t>(bytes.size() * kMostValuesPerByte, kFewestValuesAllowed);
    }

    void check() { expand(top_, 0); }

private:
    enum class State : std::uint8_t { unseen, open, done };

    std::uint8_t byteAt(std::uint64_t position) const
    {
        if (position >= bytes_.size())
            throw Refused("The binary property list is cut or damaged");
        return static_cast<std::uint8_t>(bytes_[position]);
    }

    std::uint64_t number(std::uint64_t position, std::size_t size) const
    {
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < size; ++i)
            result = result << 8 | byteAt(position + i);
        return result;
    }

    void requireInFile(std::uint64_t position, std::uint64_t length) const
    {
        if (position > offsetTable_ || length > offsetTable_ - position)
            throw Refused("An object of the binary property list lies outside the file");
    }

    /// Count of a marker's low half, which 15 moves to an integer object behind it.
    std::uint64_t count(std::uint64_t& position, std::uint8_t marker) const
    {
        if ((marker & 0x0FU) != 0x0F)
            return marker & 0x0FU;
        const std::uint8_t sizeMarker = byteAt(position++);
        if ((sizeMarker & 0xF0U) != 0x10 || (sizeMarker & 0x0FU) > 3)
            throw Refused("The binary property list is cut or damaged");
        const std::size_t size = std::size_t(1) << (sizeMarker & 0x0FU);
        requireInFile(position, size);
        const std::uint64_t result = number(position, size);
        position += size;
        return result;
    }

    Expansion leaf(std::uint64_t position, std::uint64_t length) const
    {
        requireInFile(position, length);
        return {1, length};
    }

    Expansion container(std::uint64_t position, std::uint64_t references, std::size_t depth)
    {
        if (references > bytes_.size())
            throw Refused("An object of the binary property list lies outside the file");
        requireInFile(position, references * referenceSize_);
        Expansion sum{1, 0};
        for (std::uint64_t i = 0; i < references; ++i) {
            const Expansion part =
                expand(number(position + i * referenceSize_, referenceSize_), depth + 1);
            sum.values += part.values;
            sum.content += part.content;
            sum.height = std::max(sum.height, part.height + 1);
            if (sum.values > mostValues_ || sum.content > kMostContent)
                throw Refused("The binary property list expands to more than it may");
        }
        return sum;
    }

    /// A key must be a text without NUL; the library ends the process on any other.
    void requireKey(std::uint64_t object) const
    {
        std::uint64_t position = number(offsetTable_ + object * offsetSize_, offsetSize_);
        const std::uint8_t marker = byteAt(position++);
        const std::size_t unitSize = marker >> 4 == 0x5 ? 1 : 2;
        if (marker >> 4 != 0x5 && marker >> 4 != 0x6)
            throw Refused("A key of the binary property list is not text");
        const std::uint64_t units = count(position, marker);
        for (std::uint64_t i = 0; i < units; ++i) {
            if (number(position + i * unitSize, unitSize) == 0)
                throw Refused("A key of the binary property list holds a NUL character");
        }
    }

    Expansion objectAt(std::uint64_t position, std::size_t depth)
    {
        const std::uint8_t marker = byteAt(position++);
        requireInFile(position, 0);
        switch (marker >> 4) {
        case 0x0: // booleans
            if (marker != 0x08 && marker != 0x09)
                throw Refused("The binary property list holds an object of an unknown kind");
            return {1, 0};
        case 0x1: // integers
        case 0x2: // reals
            if ((marker & 0x0FU) > 4)
                throw Refused("The binary property list holds a number of an unknown size");
            return leaf(position, std::uint64_t(1) << (marker & 0x0FU));
        case 0x3: // date
            return leaf(position, 8);
        case 0x4: // data
        case 0x5: // ASCII text
            return leaf(position, count(position, marker));
        case 0x6: { // UTF-16 text
            const std::uint64_t units = count(position, marker);
            if (units > bytes_.size())
                throw Refused("An object of the binary property list lies outside the file");
            return leaf(position, units * 2);
        }
        case 0xA: { // array
            const std::uint64_t references = count(position, marker);
            return container(position, references, depth);
        }
        case 0xD: { // dictionary: keys, then values
            const std::uint64_t pairs = count(position, marker);
            if (pairs > bytes_.size())
                throw Refused("An object of the binary property list lies outside the file");
            const Expansion expansion = container(position, pairs * 2, depth);
            for (std::uint64_t i = 0; i < pairs; ++i)
                requireKey(number(position + i * referenceSize_, referenceSize_));
            return expansion;
        }
        default:
            throw Refused("The binary property list holds an object of an unknown kind");
        }
    }

    Expansion expand(std::uint64_t object, std::size_t depth)
    {
        if (object >= objectCount_)
            throw Refused("A reference of the binary property list leads outside the file");
        if (depth > kDeepestNesting)
            throw Refused("The binary property list is nested deeper than 512");
        if (state_[object] == State::open)
            throw Refused("The binary property list contains itself");
        if (state_[object] == State::unseen) {
            state_[object] = State::open;
            const std::uint64_t offset = number(offsetTable_ + object * offsetSize_, offsetSize_);
            if (offset < kMagic.size() || offset >= offsetTable_)
                throw Refused("An object of the binary property list lies outside the file");
            expansion_[object] = objectAt(offset, depth);
            state_[object] = State::done;
        }
        // What was met before, less deep, may reach too deep from here.
        if (depth + expansion_[object].height > kDeepestNesting)
            throw Refused("The binary property list is nested deeper than 512");
        return expansion_[object];
    }

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t offsetTable_ = 0;
    std::uint64_t mostValues_ = 0;
    std::vector<State> state_;
    std::vector<Expansion> expansion_;
};

} // namespace

std::optional<std::string> faultInBinaryPropertyList(std::string_view bytes)
{
    try {
        Guard(bytes).check();
        return std::nullopt;
    } catch (const Refused& refusal) {
        return refusal.what();
    }
}

} // namespace stowline::platform
