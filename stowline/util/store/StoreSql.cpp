#include "stowline/util/store/StoreSql.h"

#include "stowline/util/store/FormMatch.h"

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <span>

namespace stowline::store {

namespace {

using Kind = Predicate::Kind;
using Relation = Predicate::Relation;

/// Column of the object's number. No attribute's name begins with an underscore.
constexpr const char* kNumber = "\"_id\"";

bool isUsableName(std::string_view name)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return !name.empty() && isLetter(name.front()) &&
           std::all_of(name.begin(), name.end(),
                       [&](char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '_'; });
}

void requireUsableName(const std::string& name, std::set<std::string>& taken)
{
    if (!isUsableName(name))
        throw InvalidRequest("\"" + name +
                             "\" is not a name for an entity or attribute. Please use "
                             "a letter, then letters, digits and underscores.");
    std::string lower = name; // SQL does not tell case apart
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (!taken.insert(lower).second)
        throw InvalidRequest("The model has the name \"" + name + "\" twice.");
}

bool fits(AttributeType type, const Value& value)
{
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
    const bool isWhole =
        value.integer() || (value.unsignedInteger() && *value.unsignedInteger() <= largest);
    switch (type) {
    case AttributeType::string:
        return value.string();
    case AttributeType::integer:
        return isWhole;
    case AttributeType::real:
        return isWhole || (value.real() && *value.real() == *value.real());
    case AttributeType::boolean:
        return value.boolean();
    case AttributeType::date:
        return value.date();
    case AttributeType::data:
        return value.data();
    }
    return false;
}

std::string_view nameOf(AttributeType type)
{
    static constexpr std::array<std::string_view, 6> names{"text",    "whole numbers", "numbers",
                                                           "boolean", "dates",         "data"};
    return names.at(static_cast<std::size_t>(type));
}

void append(Sql& sql, Sql piece)
{
    sql.text += piece.text;
    std::move(piece.values.begin(), piece.values.end(), std::back_inserter(sql.values));
}

std::string_view sqlOf(Relation relation)
{
    switch (relation) {
    case Relation::equal:
        return " = ?";
    case Relation::notEqual:
        return " IS NOT ?"; // nothing is unequal to every value
    case Relation::less:
        return " < ?";
    case Relation::lessOrEqual:
        return " <= ?";
    case Relation::greater:
        return " > ?";
    case Relation::greaterOrEqual:
        return " >= ?";
    }
    return "";
}

/// The least text after all that begin with this one; absent when there is none. Text is ordered by
/// its bytes.
std::optional<std::string> endOfPrefix(std::string prefix)
{
    constexpr char greatest = '\xff';
    while (!prefix.empty() && prefix.back() == greatest)
        prefix.pop_back();
    if (prefix.empty())
        return std::nullopt;
    prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
    return prefix;
}

/// A range rather than a match, so that an index serves.
Sql beginsWith(const std::string& column, const Value& text)
{
    const auto end = endOfPrefix(*text.string());
    if (!end)
        return {column + " >= ?", {text}};
    return {"(" + column + " >= ? AND " + column + " < ?)", {text, *end}};
}

class Compiler {
public:
    explicit Compiler(const EntityDescription& entity) : entity_(entity) {}

    [[nodiscard]] Sql compiled(const Predicate& predicate) const
    {
        switch (predicate.kind()) {
        case Kind::allOf:
            return joined(predicate.conditions(), " AND ", "1");
        case Kind::anyOf:
            return joined(predicate.conditions(), " OR ", "0");
        case Kind::negation: {
            Sql sql{"(", {}};
            append(sql, compiled(predicate.conditions().front()));
            sql.text += " IS NOT TRUE)";
            return sql;
        }
        default:
            return condition(predicate);
        }
    }

private:
    /// Halves joined with halves, because SQL bounds how deep an expression may be.
    [[nodiscard]] Sql joined(std::span<const Predicate> conditions, std::string_view word,
                             const char* ofNone) const
    {
        if (conditions.empty())
            return {ofNone, {}};
        if (conditions.size() == 1)
            return compiled(conditions.front());
        Sql sql{"(", {}};
        append(sql, joined(conditions.first(conditions.size() / 2), word, ofNone));
        sql.text += word;
        append(sql, joined(conditions.subspan(conditions.size() / 2), word, ofNone));
        sql.text += ")";
        return sql;
    }

    [[nodiscard]] Sql condition(const Predicate& predicate) const
    {
        const AttributeDescription& attribute = requireAttribute(entity_, predicate.attribute());
        const std::string column = quoted(attribute.name);
        for (const Value& value : predicate.values())
            requireFitting(entity_, attribute, value);
        switch (predicate.kind()) {
        case Kind::in:
            return oneOf(column, predicate.values());
        case Kind::isNull:
            return {column + " IS NULL", {}};
        case Kind::comparison:
            return {column + std::string(sqlOf(predicate.relation())), predicate.values()};
        default:
            return textCondition(predicate, attribute, column);
        }
    }

    [[nodiscard]] Sql textCondition(const Predicate& predicate,
                                    const AttributeDescription& attribute,
                                    const std::string& column) const
    {
        if (attribute.type != AttributeType::string)
            throw InvalidRequest(entity_.name + "." + attribute.name +
                                 " holds no text. Please compare it with a value instead.");
        const Value& text = predicate.values().front();
        if (predicate.kind() == Kind::beginsWith)
            return beginsWith(column, text);
        if (predicate.kind() == Kind::contains)
            return {"instr(" + column + ", ?) > 0", {text}};
        return {std::string(kIsOfForm) + "(" + column + ", ?)", {text}};
    }

    [[nodiscard]] static Sql oneOf(const std::string& column, const Array& values)
    {
        Sql sql{column + " IN (", values};
        for (std::size_t i = 0; i < values.size(); ++i)
            sql.text += i == 0 ? "?" : ", ?";
        sql.text += ")";
        return sql;
    }

    const EntityDescription& entity_;
};

Sql whereOf(const Selection& selection)
{
    if (!selection.predicate)
        return {};
    Sql sql{" WHERE ", {}};
    append(sql, Compiler(selection.entity).compiled(*selection.predicate));
    return sql;
}

std::string orderOf(const Selection& selection)
{
    std::string text;
    for (const SortDescriptor& by : selection.order) {
        (void)requireAttribute(selection.entity, by.attribute);
        text += (text.empty() ? " ORDER BY " : ", ") + quoted(by.attribute) +
                (by.ascending ? "" : " DESC");
    }
    // Equals stay in the order of their numbers, so that pages fit together; the same direction as
    // the last attribute's lets one index serve both.
    if (!text.empty())
        text += std::string(", ") + kNumber + (selection.order.back().ascending ? "" : " DESC");
    return text;
}

void appendPage(Sql& sql, const Selection& selection)
{
    if (selection.limit == 0 && selection.offset == 0)
        return;
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    sql.text += " LIMIT ? OFFSET ?";
    sql.values.emplace_back(selection.limit == 0
                                ? std::int64_t(-1)
                                : static_cast<std::int64_t>(std::min(selection.limit, most)));
    sql.values.emplace_back(static_cast<std::int64_t>(std::min(selection.offset, most)));
}

} // namespace

void requireUsableModel(const ObjectModel& model)
{
    std::set<std::string> entities;
    for (const EntityDescription& entity : model) {
        requireUsableName(entity.name, entities);
        std::set<std::string> attributes;
        for (const AttributeDescription& attribute : entity.attributes)
            requireUsableName(attribute.name, attributes);
    }
}

void requireFitting(const EntityDescription& entity, const AttributeDescription& attribute,
                    const Value& value)
{
    if (!fits(attribute.type, value))
        throw InvalidRequest(entity.name + "." + attribute.name + " holds " +
                             std::string(nameOf(attribute.type)) + " and cannot be a " +
                             std::string(value.kindName()) + " like this one.");
}

const AttributeDescription& requireAttribute(const EntityDescription& entity, std::string_view name)
{
    const AttributeDescription* attribute = entity.attribute(name);
    if (!attribute)
        throw InvalidRequest(entity.name + " has no attribute \"" + std::string(name) + "\".");
    return *attribute;
}

Sql selectRows(const Selection& selection)
{
    Sql sql{std::string("SELECT ") + kNumber, {}};
    for (const AttributeDescription& attribute : selection.entity.attributes)
        sql.text += ", " + quoted(attribute.name);
    sql.text += " FROM " + quoted(selection.entity.name);
    append(sql, whereOf(selection));
    sql.text += orderOf(selection);
    appendPage(sql, selection);
    return sql;
}

Sql selectCount(const Selection& selection)
{
    (void)orderOf(selection); // what is wrong with it is told here too
    const std::string from = " FROM " + quoted(selection.entity.name);
    if (selection.limit == 0 && selection.offset == 0) {
        Sql sql{"SELECT count(*)" + from, {}};
        append(sql, whereOf(selection));
        return sql;
    }
    Sql sql{"SELECT count(*) FROM (SELECT 1" + from, {}};
    append(sql, whereOf(selection));
    appendPage(sql, selection);
    sql.text += ")";
    return sql;
}

std::string createTable(const EntityDescription& entity)
{
    std::string text = "CREATE TABLE IF NOT EXISTS " + quoted(entity.name) + " (" + kNumber +
                       " INTEGER PRIMARY KEY AUTOINCREMENT";
    for (const AttributeDescription& attribute : entity.attributes)
        text += ", " + quoted(attribute.name) + " " + std::string(columnType(attribute.type));
    return text + ")";
}

std::string addColumn(const EntityDescription& entity, const AttributeDescription& attribute)
{
    return "ALTER TABLE " + quoted(entity.name) + " ADD COLUMN " + quoted(attribute.name) + " " +
           std::string(columnType(attribute.type));
}

std::string createIndex(const EntityDescription& entity, const AttributeDescription& attribute)
{
    return "CREATE INDEX IF NOT EXISTS " + quoted(entity.name + "." + attribute.name) + " ON " +
           quoted(entity.name) + " (" + quoted(attribute.name) + ")";
}

std::string_view columnType(AttributeType type)
{
    static constexpr std::array<std::string_view, 6> types{"TEXT",    "INTEGER", "REAL",
                                                           "BOOLEAN", "DATE",    "BLOB"};
    return types.at(static_cast<std::size_t>(type));
}

std::string insertRow(const EntityDescription& entity)
{
    std::string columns;
    std::string values;
    for (const AttributeDescription& attribute : entity.attributes) {
        columns += (columns.empty() ? "" : ", ") + quoted(attribute.name);
        values += values.empty() ? "?" : ", ?";
    }
    const std::string text = "INSERT INTO " + quoted(entity.name);
    return columns.empty() ? text + " DEFAULT VALUES"
                           : text + " (" + columns + ") VALUES (" + values + ")";
}

std::string updateRow(const EntityDescription& entity)
{
    std::string text;
    for (const AttributeDescription& attribute : entity.attributes)
        text += (text.empty() ? " SET " : ", ") + quoted(attribute.name) + " = ?";
    return "UPDATE " + quoted(entity.name) + text + " WHERE " + kNumber + " = ?";
}

std::string deleteRow(const EntityDescription& entity)
{
    return "DELETE FROM " + quoted(entity.name) + " WHERE " + kNumber + " = ?";
}

std::string quoted(std::string_view name)
{
    std::string text = "\"";
    for (const char character : name)
        text.append(character == '"' ? 2 : 1, character);
    return text + "\"";
}

} // namespace stowline::store
