// The file of an index: made, recognised, set aside.
#pragma once

#include "stowline/backup/index/ItemIndex.h"

#include <SQLiteCpp/Database.h>

#include <filesystem>
#include <memory>
#include <vector>

namespace stowline::backup {

/// An open database with the tables of an index.
struct IndexFile {
    std::filesystem::path path; ///< empty: of a temporary one
    std::unique_ptr<SQLite::Database> database;
    ItemIndex::State state = ItemIndex::State::fresh;
};

/// As ItemIndex::open(). @throws IndexFault
[[nodiscard]] IndexFile openIndexFile(const std::filesystem::path& path, const IndexOwner& owner);

/// As ItemIndex::positionOf().
[[nodiscard]] IndexPosition positionInIndexFile(const std::filesystem::path& path,
                                                const IndexOwner& owner);

/// As ItemIndex::ownerOf().
[[nodiscard]] std::optional<IndexOwner> ownerOfIndexFile(const std::filesystem::path& path);

/// As ItemIndex::knownRecordsOf().
[[nodiscard]] std::vector<IndexPosition> knownRecordsInIndexFile(const std::filesystem::path& path,
                                                                 const IndexOwner& owner);

/// The known records of an open index. @throws SQLite::Exception
[[nodiscard]] std::vector<IndexPosition> knownRecordsIn(SQLite::Database& database);

/// A database in a temporary file that the system takes away. @throws IndexFault
[[nodiscard]] IndexFile temporaryIndexFile();

/// What the database said last, as a fault that names the file.
[[nodiscard]] IndexFault faultOf(const IndexFile& file, const SQLite::Exception& fault);

} // namespace stowline::backup
