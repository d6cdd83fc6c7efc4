// What the tables of an index share.
#pragma once

#include "stowline/backup/tree/ItemRecord.h"

#include <SQLiteCpp/Statement.h>

#include <string>
#include <string_view>

namespace stowline::backup {

/// Takes a kept statement back when its use is over, so that it holds no lock.
class StatementUse {
public:
    explicit StatementUse(SQLite::Statement& statement) : statement_(statement)
    {
        statement_.reset();
    }
    ~StatementUse() { (void)statement_.tryReset(); }
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

private:
    SQLite::Statement& statement_;
};

/// The path of a row: the root alone lies in no folder.
[[nodiscard]] inline std::string pathOfRow(std::string_view folder, std::string_view name)
{
    return folder.empty() ? std::string(name) : pathIn(folder, name);
}

} // namespace stowline::backup
