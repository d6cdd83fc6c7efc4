// Answers whose elements are named in one place: for their description and for what is sent.
#pragma once

#include "devserver/ServiceMethod.h"

#include <fmt/format.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stowline::devserver {

/// An element that tells something of an item: its name, and the content it has for one. Absent
/// content leaves it out.
template <class Item> struct FieldOf {
    std::string name;
    std::function<std::optional<Value>(const Item&)> contentOf;
    bool nillable = false;
};

/// The elements as a service describes them.
template <class Item> std::vector<Field> described(const std::vector<FieldOf<Item>>& fields)
{
    std::vector<Field> elements;
    elements.reserve(fields.size());
    for (const FieldOf<Item>& field : fields)
        elements.push_back({.name = field.name, .nillable = field.nillable});
    return elements;
}

/// The elements with what they tell of an item, as text.
template <class Item> Dictionary told(const std::vector<FieldOf<Item>>& fields, const Item& item)
{
    Dictionary elements;
    for (const FieldOf<Item>& field : fields) {
        if (const auto content = field.contentOf(item))
            elements.emplace(field.name, content->text());
    }
    return elements;
}

/// How a truth value is written.
inline const char* truthText(bool truth)
{
    return truth ? "true" : "false";
}

/// What a member holds, as a truth value and as a checksum is written.
template <class Item> auto truthOf(bool Item::*member)
{
    return [member](const Item& item) -> std::optional<Value> { return truthText(item.*member); };
}
template <class Item> auto checksumOf(std::uint32_t Item::*member)
{
    return [member](const Item& item) -> std::optional<Value> {
        return fmt::format("{:08x}", item.*member);
    };
}

/// Of the methods that answer with a result map: the map's description, and a map with a code.
inline Field codedResult(const std::string& method)
{
    return {.name = method + "Result", .parts = {{.name = "Code"}}};
}
inline Dictionary coded(const std::string& method, const char* code)
{
    return {{codedResult(method).name, Dictionary{{codedResult(method).parts[0].name, code}}}};
}

} // namespace stowline::devserver
