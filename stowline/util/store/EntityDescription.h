// What kinds of objects a store holds.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// What an attribute holds. Each is also allowed to hold nothing.
enum class AttributeType {
    string,
    integer, ///< signed, 64 bits
    real,
    boolean,
    date, ///< to the microsecond
    data,
};

struct AttributeDescription {
    std::string name; ///< a letter, then letters, digits and underscores, all of ASCII
    AttributeType type = AttributeType::string;
    bool isIndexed = false; ///< for attributes that predicates and sort descriptors use
};

struct EntityDescription {
    std::string name; ///< as an attribute's
    std::vector<AttributeDescription> attributes;

    /// Null when it has none of that name.
    [[nodiscard]] const AttributeDescription* attribute(std::string_view attributeName) const
    {
        for (const AttributeDescription& candidate : attributes) {
            if (candidate.name == attributeName)
                return &candidate;
        }
        return nullptr;
    }
};

using ObjectModel = std::vector<EntityDescription>;

} // namespace stowline
#pragma GCC visibility pop
