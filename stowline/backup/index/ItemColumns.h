// An item as columns of a table.
#pragma once

#include "stowline/backup/index/StoredItem.h"

#include <string>
#include <string_view>
#include <vector>

namespace SQLite {
class Statement;
}

namespace stowline::backup {

/// The names of the columns that describe an item, in their order, joined by commas, each behind a
/// prefix; docs/formats/index.md says what they hold. The first is `kind`.
[[nodiscard]] std::string itemColumns(std::string_view prefix = {});
[[nodiscard]] int itemColumnCount();

/// For an update: "kind = excluded.kind, size = …", or all of them NULL.
[[nodiscard]] std::string itemColumnsFromExcluded();
[[nodiscard]] std::string itemColumnsAsNull();

/// Binds all columns of an item from a place on. The item must outlive the statement's run.
void bindItem(SQLite::Statement& statement, int first, const StoredItem& item);

/// Whether a row holds an item: a note that one is gone has no kind.
[[nodiscard]] bool holdsItem(const SQLite::Statement& row, int first);

/// The item of a row.
/// @throws SQLite::Exception (SQLITE_CORRUPT) when the columns hold what no item has
[[nodiscard]] StoredItem itemOfRow(const SQLite::Statement& row, int first, std::string path);

/// Extended attributes in one value: name and value in turn, each as its length in decimal digits,
/// a colon, the bytes and a comma ("netstrings").
[[nodiscard]] std::string packedAttributes(const std::vector<ExtendedAttribute>& attributes);
/// @return false when the text is not of that form
[[nodiscard]] bool unpackAttributes(std::string_view packed,
                                    std::vector<ExtendedAttribute>& attributes);

} // namespace stowline::backup
