// Values as the database keeps them, there and back.
#pragma once

#include "stowline/platform/values/Value.h"
#include "stowline/util/store/EntityDescription.h"

#include <vector>

namespace SQLite {
class Column;
class Statement;
} // namespace SQLite

namespace stowline::store {

/// The value of a column that is not NULL: dates are microseconds since 1970, truths 0 and 1.
[[nodiscard]] Value readColumn(const SQLite::Column& column, AttributeType type);

/// Gives a statement the value of its n-th "?", or all of them, the first being 1. Values need not
/// outlive the call.
void bindValue(SQLite::Statement& statement, int place, const Value& value);
void bindAll(SQLite::Statement& statement, const std::vector<Value>& values);

} // namespace stowline::store
