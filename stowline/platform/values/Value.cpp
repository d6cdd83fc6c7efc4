#include "stowline/platform/values/Value.h"

#include "stowline/platform/time/DateText.h"

#include <array>
#include <charconv>

namespace stowline::platform {

namespace {

template <class... Cases> struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases> Overloaded(Cases...) -> Overloaded<Cases...>;

std::string realText(double number)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return {digits.data(), end};
}

std::string arrayText(const Array& items)
{
    std::string text = "(";
    for (const Value& item : items) {
        if (text.size() > 1)
            text += ", ";
        text += item.text();
    }
    return text + ")";
}

std::string dictionaryText(const Dictionary& entries)
{
    std::string text = "{";
    for (const auto& [key, value] : entries)
        text.append(key).append(" = ").append(value.text()).append("; ");
    return text + "}";
}

/// A whole number whatever its signedness: negative flag and magnitude.
struct WholeNumber {
    bool negative;
    std::uint64_t bits;
    bool operator==(const WholeNumber&) const = default;
};

/// The container, copied first when other values share it.
template <class Container> Container* unshared(std::shared_ptr<Container>& shared)
{
    if (shared.use_count() > 1)
        shared = std::make_shared<Container>(*shared);
    return shared.get();
}

std::optional<WholeNumber> wholeNumber(const Value& value)
{
    if (const auto* number = value.integer())
        return WholeNumber{*number < 0, static_cast<std::uint64_t>(*number)};
    if (const auto* number = value.unsignedInteger())
        return WholeNumber{false, *number};
    return std::nullopt;
}

} // namespace

Value::Value(Array items) : content_(std::make_shared<Array>(std::move(items))) {}

Value::Value(Dictionary entries) : content_(std::make_shared<Dictionary>(std::move(entries))) {}

const Array* Value::array() const
{
    const auto* shared = std::get_if<std::shared_ptr<Array>>(&content_);
    return shared ? shared->get() : nullptr;
}

const Dictionary* Value::dictionary() const
{
    const auto* shared = std::get_if<std::shared_ptr<Dictionary>>(&content_);
    return shared ? shared->get() : nullptr;
}

Array* Value::array()
{
    auto* shared = std::get_if<std::shared_ptr<Array>>(&content_);
    return shared ? unshared(*shared) : nullptr;
}

Dictionary* Value::dictionary()
{
    auto* shared = std::get_if<std::shared_ptr<Dictionary>>(&content_);
    return shared ? unshared(*shared) : nullptr;
}

std::string_view Value::kindName() const
{
    static constexpr std::array<std::string_view, 10> names{
        "string", "data", "boolean", "number",     "number",
        "number", "date", "list",    "dictionary", "URL"};
    return names.at(content_.index());
}

std::string Value::text() const
{
    return std::visit(
        Overloaded{
            [](const std::string& text) { return text; },
            [](const Data& bytes) { return "<" + std::to_string(bytes.size()) + " bytes>"; },
            [](bool truth) { return std::string(truth ? "1" : "0"); },
            [](std::int64_t number) { return std::to_string(number); },
            [](std::uint64_t number) { return std::to_string(number); },
            [](double number) { return realText(number); },
            [](Date moment) { return universalTimeText(moment); },
            [](const Url& address) { return address.text(); },
            [](const std::shared_ptr<Array>& items) { return arrayText(*items); },
            [](const std::shared_ptr<Dictionary>& entries) { return dictionaryText(*entries); },
        },
        content_);
}

std::optional<std::size_t> Value::count() const
{
    if (const Array* items = array())
        return items->size();
    if (const Dictionary* entries = dictionary())
        return entries->size();
    return std::nullopt;
}

bool operator==(const Value& left, const Value& right)
{
    const auto leftNumber = wholeNumber(left);
    const auto rightNumber = wholeNumber(right);
    if (leftNumber && rightNumber)
        return *leftNumber == *rightNumber;
    if (left.array() && right.array())
        return *left.array() == *right.array();
    if (left.dictionary() && right.dictionary())
        return *left.dictionary() == *right.dictionary();
    return left.content_ == right.content_;
}

const Value* find(const Dictionary& dictionary, std::string_view key)
{
    const auto entry = dictionary.find(key);
    return entry == dictionary.end() ? nullptr : &entry->second;
}

const std::string* findString(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = find(dictionary, key);
    return value ? value->string() : nullptr;
}

const Dictionary* findDictionary(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = find(dictionary, key);
    return value ? value->dictionary() : nullptr;
}

const Array* findArray(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = find(dictionary, key);
    return value ? value->array() : nullptr;
}

std::string findText(const Dictionary& dictionary, std::string_view key)
{
    const Value* value = find(dictionary, key);
    return value ? value->text() : std::string();
}

std::optional<Value> valueAtKeyPath(const Value& root, std::string_view path)
{
    if (path.empty())
        return root;
    if (const Array* items = root.array()) {
        Array collected;
        for (const Value& item : *items) {
            if (auto found = valueAtKeyPath(item, path))
                collected.push_back(std::move(*found));
        }
        return Value(std::move(collected));
    }
    const Dictionary* entries = root.dictionary();
    if (!entries)
        return std::nullopt;
    const auto dot = path.find('.');
    const Value* next = find(*entries, path.substr(0, dot));
    if (!next)
        return std::nullopt;
    return valueAtKeyPath(*next, dot == std::string_view::npos ? "" : path.substr(dot + 1));
}

} // namespace stowline::platform
