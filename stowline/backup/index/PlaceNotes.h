// The notes of places in an index: one more table beside that of the items.
#pragma once

#include "stowline/backup/index/PlaceNote.h"

#include <SQLiteCpp/Statement.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Within the transaction of whoever calls. Throws SQLite::Exception.
class PlaceNotes {
public:
    /// Makes the table where an index of before has none.
    explicit PlaceNotes(SQLite::Database& database);

    /// The notes of what is directly in a folder, by the bytes of the names.
    [[nodiscard]] std::vector<PlaceNote> in(std::string_view folder);
    [[nodiscard]] std::optional<PlaceNote> at(std::string_view path);

    /// Nothing changes where there is the very same note.
    void put(const PlaceNote& note, std::int64_t run);
    /// Notes that there is none any more.
    void removeAt(std::string_view path, std::int64_t run);
    void removeBelow(std::string_view path, std::int64_t run);

    /// Those that changed after a run (-1: all that there are), in walking order of their folders;
    /// absent: it is gone.
    void forEachChangeSince(
        std::int64_t run,
        const std::function<bool(const std::string&, const std::optional<PlaceNote>&)>& take);
    [[nodiscard]] std::uint64_t count(PlaceNote::Kind kind);

    void forgetVanished(std::int64_t upToRun);
    void clear();

private:
    SQLite::Database& database_;
    SQLite::Statement ofFolder_;
    SQLite::Statement byName_;
    SQLite::Statement put_;
    SQLite::Statement removeAt_;
    SQLite::Statement removeBelow_;
};

} // namespace stowline::backup
