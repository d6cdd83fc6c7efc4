// Writing the binary form, in time and memory linear in what is written.
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Utf8.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/platform/values/PropertyListParts.h"

#include <algorithm>
#include <bit>
#include <deque>
#include <functional>
#include <limits>
#include <unordered_map>
#include <utility>

namespace stowline::platform {

namespace {

struct Unwritable {};

/// The kinds of objects, in the high half of a marker (format 00).
enum class Marker : std::uint8_t {
    boolean = 0x0,
    integer = 0x1,
    real = 0x2,
    date = 0x3,
    data = 0x4,
    ascii = 0x5,
    utf16 = 0x6,
    array = 0xA,
    dictionary = 0xD,
};

constexpr std::size_t kDeepestNesting = 512;

void putNumber(std::string& bytes, std::uint64_t number, std::size_t size)
{
    for (std::size_t i = size; i-- > 0;)
        bytes.push_back(static_cast<char>(i < 8 ? number >> (8 * i) & 0xFFU : 0));
}

/// The fewest bytes of 1, 2, 4 and 8 that a number takes.
std::size_t sizeOf(std::uint64_t number)
{
    if (number <= std::numeric_limits<std::uint8_t>::max())
        return 1;
    if (number <= std::numeric_limits<std::uint16_t>::max())
        return 2;
    return number <= std::numeric_limits<std::uint32_t>::max() ? 4 : 8;
}

void putMarker(std::string& bytes, Marker marker, std::uint64_t low)
{
    bytes.push_back(static_cast<char>(static_cast<unsigned>(marker) << 4U | low));
}

void putInteger(std::string& bytes, std::uint64_t number, std::size_t size)
{
    putMarker(bytes, Marker::integer, static_cast<unsigned>(std::countr_zero(size)));
    putNumber(bytes, number, size);
}

void putCount(std::string& bytes, Marker marker, std::size_t count)
{
    constexpr std::size_t follows = 15;
    putMarker(bytes, marker, std::min(count, follows));
    if (count >= follows)
        putInteger(bytes, count, sizeOf(count));
}

void putReal(std::string& bytes, Marker marker, double number)
{
    putMarker(bytes, marker, 3);
    putNumber(bytes, std::bit_cast<std::uint64_t>(number), 8);
}

/// The UTF-16 units of a text that is valid UTF-8, high byte first.
std::string utf16Of(std::string_view text)
{
    std::string units;
    for (std::size_t at = 0; at < text.size();) {
        const auto [point, length] = firstUtf8Character(text.substr(at));
        at += length;
        constexpr char32_t firstBeyond = 0x10000;
        if (point < firstBeyond) {
            putNumber(units, point, 2);
        } else {
            putNumber(units, 0xD800U + ((point - firstBeyond) >> 10U), 2);
            putNumber(units, 0xDC00U + ((point - firstBeyond) & 0x3FFU), 2);
        }
    }
    return units;
}

void putText(std::string& bytes, std::string_view text)
{
    if (std::ranges::none_of(text, [](char c) { return static_cast<unsigned char>(c) > 127; })) {
        putCount(bytes, Marker::ascii, text.size());
        bytes.append(text);
        return;
    }
    const std::string units = utf16Of(text);
    putCount(bytes, Marker::utf16, units.size() / 2);
    bytes.append(units);
}

void putScalar(std::string& bytes, const Value& value)
{
    if (const auto* content = value.data()) {
        putCount(bytes, Marker::data, content->size());
        bytes.append(content->begin(), content->end());
    } else if (const auto* truth = value.boolean()) {
        putMarker(bytes, Marker::boolean, *truth ? 9 : 8);
    } else if (const auto* number = value.integer()) {
        const auto bits = static_cast<std::uint64_t>(*number);
        putInteger(bytes, bits, *number < 0 ? 8 : sizeOf(bits));
    } else if (const auto* count = value.unsignedInteger()) {
        constexpr auto mostSigned =
            static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        putInteger(bytes, *count, *count > mostSigned ? 16 : sizeOf(*count));
    } else if (const auto* real = value.real()) {
        putReal(bytes, Marker::real, *real);
    } else if (const auto* moment = value.date()) {
        const std::chrono::duration<double> since = moment->time_since_epoch() - kPropertyListEpoch;
        putReal(bytes, Marker::date, since.count());
    } else {
        throw Unwritable{};
    }
}

/// Gives every object its number, then writes them in that order. Containers that values share are
/// written once, and so are texts that come again soon, as keys do.
class Writer {
public:
    explicit Writer(const Value& root) { add(root, 0); }

    std::string written()
    {
        containers_ = {};
        referenceSize_ = sizeOf(objects_.size());
        std::string bytes;
        bytes.reserve(size()); // growing would take as much again for a moment
        bytes = "bplist00";
        std::deque<std::uint64_t> offsets;
        for (const Object& object : objects_) {
            offsets.push_back(bytes.size());
            write(object, bytes);
        }
        const std::uint64_t table = bytes.size();
        const std::size_t offsetSize = sizeOf(table);
        for (const std::uint64_t offset : offsets)
            putNumber(bytes, offset, offsetSize);
        putNumber(bytes, 0, 6);
        putNumber(bytes, offsetSize, 1);
        putNumber(bytes, referenceSize_, 1);
        putNumber(bytes, objects_.size(), 8);
        putNumber(bytes, 0, 8); // the root stands first
        putNumber(bytes, table, 8);
        return bytes;
    }

private:
    using Number = std::uint32_t;

    /// A value, or a text. A container's references stand together in a list of all.
    struct Object {
        const Value* value = nullptr;
        std::string_view text = {};
        std::size_t firstReference = 0;
    };

    /// About how many bytes will be written, and rarely fewer.
    [[nodiscard]] std::size_t size() const
    {
        constexpr std::size_t ofObject = 2 + 4; // its kind and length, and its place in the table
        return contentBytes_ + references_.size() * referenceSize_ + objects_.size() * ofObject;
    }

    Number append(Object object)
    {
        if (objects_.size() == std::numeric_limits<Number>::max())
            throw Unwritable{};
        objects_.push_back(object);
        return static_cast<Number>(objects_.size() - 1);
    }

    Number addText(const std::string& text)
    {
        if (text.find('\0') != std::string::npos || !isValidUtf8(text))
            throw Unwritable{}; // other readers cut or garble them
        // One place for each hash, so that no choice of texts makes looking one up slow.
        Number& known = recentTexts_.at(std::hash<std::string_view>()(text) % recentTexts_.size());
        if (known == 0 || objects_[known].value || objects_[known].text != text) {
            known = append({.text = text});
            contentBytes_ += text.size();
        }
        return known;
    }

    Number add(const Value& value, std::size_t depth)
    {
        if (depth > kDeepestNesting)
            throw Unwritable{};
        if (const auto* text = value.string())
            return addText(*text);
        if (const auto* items = value.array())
            return addContainer(value, items, items->size(), [&] {
                for (std::size_t i = 0; i < items->size(); ++i)
                    noteReference(add((*items)[i], depth + 1));
            });
        if (const auto* entries = value.dictionary())
            return addContainer(value, entries, 2 * entries->size(), [&] {
                for (const auto& [key, item] : *entries)
                    noteReference(addText(key));
                for (const auto& [key, item] : *entries)
                    noteReference(add(item, depth + 1));
            });
        if (const auto* bytes = value.data())
            contentBytes_ += bytes->size();
        return append({.value = &value});
    }

    template <class AddContent>
    Number addContainer(const Value& value, const void* identity, std::size_t references,
                        const AddContent& addContent)
    {
        if (const auto known = containers_.find(identity); known != containers_.end())
            return known->second;
        const Number number = append({.value = &value, .firstReference = references_.size()});
        containers_.emplace(identity, number);
        references_.resize(references_.size() + references);
        const std::size_t outer = std::exchange(next_, objects_[number].firstReference);
        addContent();
        next_ = outer;
        return number;
    }

    void noteReference(Number number) { references_[next_++] = number; }

    void write(const Object& object, std::string& bytes) const
    {
        if (!object.value) {
            putText(bytes, object.text);
        } else if (const auto* items = object.value->array()) {
            putCount(bytes, Marker::array, items->size());
            putReferences(bytes, object.firstReference, items->size());
        } else if (const auto* entries = object.value->dictionary()) {
            putCount(bytes, Marker::dictionary, entries->size());
            putReferences(bytes, object.firstReference, 2 * entries->size());
        } else {
            putScalar(bytes, *object.value);
        }
    }

    void putReferences(std::string& bytes, std::size_t first, std::size_t count) const
    {
        for (std::size_t i = first; i < first + count; ++i)
            putNumber(bytes, references_[i], referenceSize_);
    }

    // Neither is ever copied to grow.
    std::deque<Object> objects_;
    std::deque<Number> references_;
    std::size_t contentBytes_ = 0; ///< of texts and data
    std::size_t next_ = 0;         ///< where the next reference of the innermost container goes
    std::size_t referenceSize_ = 1;
    std::unordered_map<const void*, Number> containers_;
    std::vector<Number> recentTexts_ = std::vector<Number>(4096);
};

} // namespace

std::optional<std::string> writeBinaryPropertyList(const Value& root)
{
    try {
        return Writer(root).written();
    } catch (const Unwritable&) {
        return std::nullopt;
    }
}

} // namespace stowline::platform
