// Reading the binary form, in time and memory linear in what is read.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/BinaryPropertyListGuard.h"
#include "stowline/platform/values/PropertyListParts.h"

#include <bit>
#include <cmath>
#include <limits>

namespace stowline::platform {

namespace {

struct Damaged {};

/// Reads a list that the guard has let pass: what it has checked is not checked again.
class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes)
    {
        constexpr std::size_t trailerSize = 32;
        const std::size_t trailer = bytes.size() - trailerSize;
        offsetSize_ = number(trailer + 6, 1);
        referenceSize_ = number(trailer + 7, 1);
        containerOf_.resize(number(trailer + 8, 8));
        top_ = number(trailer + 16, 8);
        offsetTable_ = number(trailer + 24, 8);
    }

    Value root() { return value(top_); }

private:
    [[nodiscard]] std::uint64_t number(std::uint64_t position, std::size_t size) const
    {
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < size; ++i)
            result = result << 8U | static_cast<std::uint8_t>(bytes_[position + i]);
        return result;
    }

    /// Count of a marker's low half, which 15 moves to an integer object behind it.
    std::uint64_t count(std::uint64_t& position, std::uint8_t marker) const
    {
        if ((marker & 0x0FU) != 0x0F)
            return marker & 0x0FU;
        const std::size_t size = std::size_t(1) << (number(position, 1) & 0x0FU);
        const std::uint64_t result = number(position + 1, size);
        position += 1 + size;
        return result;
    }

    [[nodiscard]] std::uint64_t positionOf(std::uint64_t object) const
    {
        return number(offsetTable_ + object * offsetSize_, offsetSize_);
    }

    [[nodiscard]] std::uint64_t reference(std::uint64_t position, std::uint64_t index) const
    {
        return number(position + index * referenceSize_, referenceSize_);
    }

    /// 1, 2 and 4 bytes are unsigned, 8 are signed, 16 hold what is too large for that.
    [[nodiscard]] Value integer(std::uint64_t position, std::size_t size) const
    {
        constexpr std::size_t wide = 16;
        if (size < wide)
            return static_cast<std::int64_t>(number(position, size));
        const std::uint64_t high = number(position, 8);
        const std::uint64_t low = number(position + 8, 8);
        const bool isNegative = low > std::numeric_limits<std::uint64_t>::max() / 2;
        if (high == 0 && isNegative)
            return low;
        if (high != (isNegative ? std::numeric_limits<std::uint64_t>::max() : 0))
            throw Damaged{};
        return static_cast<std::int64_t>(low);
    }

    [[nodiscard]] double real(std::uint64_t position, std::size_t size) const
    {
        if (size == sizeof(float))
            return std::bit_cast<float>(static_cast<std::uint32_t>(number(position, size)));
        if (size != sizeof(double))
            throw Damaged{};
        return std::bit_cast<double>(number(position, size));
    }

    [[nodiscard]] Date date(std::uint64_t position) const
    {
        using std::chrono::microseconds;
        const double sinceEpoch = std::round(real(position, sizeof(double)) * 1e6);
        constexpr double most = 9e18; // about what the type holds
        if (!(std::abs(sinceEpoch) < most))
            throw Damaged{};
        return Date(kPropertyListEpoch) + microseconds(static_cast<std::int64_t>(sinceEpoch));
    }

    [[nodiscard]] std::string utf16(std::uint64_t position, std::uint64_t units) const
    {
        std::string text;
        for (std::uint64_t i = 0; i < units; ++i) {
            auto point = static_cast<char32_t>(number(position + 2 * i, 2));
            if (point >= 0xD800 && point < 0xE000) {
                const char32_t low =
                    ++i < units ? static_cast<char32_t>(number(position + 2 * i, 2)) : 0;
                if (point >= 0xDC00 || low < 0xDC00 || low >= 0xE000)
                    throw Damaged{};
                point = 0x10000 + ((point - 0xD800) << 10U) + (low - 0xDC00);
            }
            appendUtf8(text, point);
        }
        return text;
    }

    [[nodiscard]] std::string text(std::uint64_t position, std::uint8_t marker) const
    {
        const std::uint64_t length = count(position, marker);
        if (marker >> 4U == 0x6)
            return utf16(position, length);
        const std::string_view units = bytes_.substr(position, length);
        if (!isValidUtf8(units))
            throw Damaged{};
        return std::string(units);
    }

    [[nodiscard]] std::string key(std::uint64_t object) const
    {
        const std::uint64_t position = positionOf(object);
        return text(position + 1, static_cast<std::uint8_t>(bytes_[position]));
    }

    Value container(std::uint64_t position, std::uint8_t marker)
    {
        const std::uint64_t length = count(position, marker);
        if (marker >> 4U == 0xA) {
            Array items;
            items.reserve(length);
            for (std::uint64_t i = 0; i < length; ++i)
                items.push_back(value(reference(position, i)));
            return items;
        }
        Dictionary entries;
        for (std::uint64_t i = 0; i < length; ++i) // as a rule in their order: at the end
            entries.insert_or_assign(entries.end(), key(reference(position, i)),
                                     value(reference(position, length + i)));
        return entries;
    }

    /// A container that is referred to again is read once and shared.
    Value sharedContainer(std::uint64_t object, std::uint64_t position, std::uint8_t marker)
    {
        if (containerOf_[object] == 0) {
            containers_.push_back(container(position, marker));
            containerOf_[object] = static_cast<std::uint32_t>(containers_.size());
        }
        return containers_[containerOf_[object] - 1];
    }

    Value value(std::uint64_t object)
    {
        std::uint64_t position = positionOf(object);
        const auto marker = static_cast<std::uint8_t>(bytes_[position++]);
        const std::size_t size = std::size_t(1) << (marker & 0x0FU);
        switch (marker >> 4U) {
        case 0x0:
            return marker == 9;
        case 0x1:
            return integer(position, size);
        case 0x2:
            return real(position, size);
        case 0x3:
            return date(position);
        case 0x4: {
            const std::uint64_t length = count(position, marker);
            const std::string_view content = bytes_.substr(position, length);
            return Data(content.begin(), content.end());
        }
        case 0x5:
        case 0x6:
            return text(position, marker);
        default:
            return sharedContainer(object, position, marker);
        }
    }

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t offsetTable_ = 0;
    std::vector<std::uint32_t> containerOf_; ///< by object: its place in the list below, from 1
    std::vector<Value> containers_;
};

} // namespace

PropertyListReading readBinaryPropertyList(std::string_view bytes)
{
    if (auto fault = faultInBinaryPropertyList(bytes))
        return {std::nullopt, *fault};
    try {
        return {Reader(bytes).root(), ""};
    } catch (const Damaged&) {
        return {std::nullopt, "The binary property list is cut or damaged"};
    }
}

} // namespace stowline::platform
