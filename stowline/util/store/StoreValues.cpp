#include "stowline/util/store/StoreValues.h"

#include <SQLiteCpp/SQLiteCpp.h>

namespace stowline::store {

void bindValue(SQLite::Statement& statement, int place, const Value& value)
{
    if (const auto* text = value.string())
        statement.bind(place, *text);
    else if (const auto* bytes = value.data())
        // Without an address SQLite takes no bytes for no value.
        statement.bind(place, bytes->empty() ? static_cast<const void*>("") : bytes->data(),
                       static_cast<int>(bytes->size()));
    else if (const auto* truth = value.boolean())
        statement.bind(place, *truth ? 1 : 0);
    else if (const auto* real = value.real())
        statement.bind(place, *real);
    else if (const auto* moment = value.date())
        statement.bind(place, static_cast<std::int64_t>(moment->time_since_epoch().count()));
    else if (const auto* unsignedNumber = value.unsignedInteger())
        statement.bind(place, static_cast<std::int64_t>(*unsignedNumber));
    else
        statement.bind(place, *value.integer());
}

Value readColumn(const SQLite::Column& column, AttributeType type)
{
    switch (type) {
    case AttributeType::string:
        return column.getString();
    case AttributeType::integer:
        return column.getInt64();
    case AttributeType::real:
        return column.getDouble();
    case AttributeType::boolean:
        return column.getInt() != 0;
    case AttributeType::date:
        return Date(std::chrono::microseconds(column.getInt64()));
    case AttributeType::data:
        break;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(column.getBlob());
    return Data(bytes, bytes + column.getBytes());
}

void bindAll(SQLite::Statement& statement, const std::vector<Value>& values)
{
    int place = 0;
    for (const Value& value : values)
        bindValue(statement, ++place, value);
}

} // namespace stowline::store
