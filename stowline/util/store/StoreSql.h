// Entities and predicates as SQL. Pure: text and values in, text and values out.
#pragma once

#include "stowline/util/store/EntityDescription.h"
#include "stowline/util/store/Predicate.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace stowline::store {

/// A model, predicate or sort descriptor that cannot be used; its text is a sentence for people.
class InvalidRequest : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

/// A piece of SQL with a "?" for each value, in order. Names of entities and attributes are the
/// only outside text in it, and are checked and quoted.
struct Sql {
    std::string text;
    std::vector<Value> values;
};

/// What a fetch asks for, in SQL's terms.
struct Selection {
    const EntityDescription& entity;
    const std::optional<Predicate>& predicate;
    const std::vector<SortDescriptor>& order;
    std::uint64_t limit = 0; ///< 0 for none
    std::uint64_t offset = 0;
};

/// Throws InvalidRequest when a name is not of the form that EntityDescription.h asks for, or
/// stands twice.
void requireUsableModel(const ObjectModel& model);

/// Throws InvalidRequest when a value is of a kind that the attribute does not hold.
void requireFitting(const EntityDescription& entity, const AttributeDescription& attribute,
                    const Value& value);

/// Throws InvalidRequest when the entity has no such attribute.
[[nodiscard]] const AttributeDescription& requireAttribute(const EntityDescription& entity,
                                                           std::string_view name);

/// Rows of the objects: their number, then each attribute in the entity's order.
[[nodiscard]] Sql selectRows(const Selection& selection);
/// How many rows that would be.
[[nodiscard]] Sql selectCount(const Selection& selection);

/// The table of an entity, a column that is missing in it, and the index of an attribute.
[[nodiscard]] std::string createTable(const EntityDescription& entity);
[[nodiscard]] std::string addColumn(const EntityDescription& entity,
                                    const AttributeDescription& attribute);
[[nodiscard]] std::string createIndex(const EntityDescription& entity,
                                      const AttributeDescription& attribute);
[[nodiscard]] std::string_view columnType(AttributeType type);

/// With a value for each attribute in order; an update also for the object's number, last.
[[nodiscard]] std::string insertRow(const EntityDescription& entity);
[[nodiscard]] std::string updateRow(const EntityDescription& entity);
[[nodiscard]] std::string deleteRow(const EntityDescription& entity);

[[nodiscard]] std::string quoted(std::string_view name);

} // namespace stowline::store
