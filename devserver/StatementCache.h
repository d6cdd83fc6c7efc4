// SQL statements that are compiled once and used again.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <map>
#include <memory>
#include <string>

namespace stowline::devserver {

/// Those of one database. Locked by whoever locks the database.
class StatementCache {
public:
    explicit StatementCache(SQLite::Database& database) : database_(database) {}

private:
    friend class KeptStatement;
    SQLite::Database& database_;
    std::map<std::string, std::unique_ptr<SQLite::Statement>, std::less<>> waiting_;
};

/// A statement without values, taken out of the cache where it waits there. It goes back, reset and
/// without values, with this object. Throws as SQLite::Statement does.
class KeptStatement {
public:
    KeptStatement(StatementCache& cache, const std::string& sql);
    ~KeptStatement();
    KeptStatement(const KeptStatement&) = delete;
    KeptStatement& operator=(const KeptStatement&) = delete;

    SQLite::Statement* operator->() const { return statement_.get(); }
    SQLite::Statement& operator*() const { return *statement_; }

private:
    std::unique_ptr<SQLite::Statement>& place_; ///< in the cache
    std::unique_ptr<SQLite::Statement> statement_;
};

} // namespace stowline::devserver
