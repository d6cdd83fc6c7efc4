#include "stowline/backup/index/IndexFault.h"

#include "stowline/platform/text/SystemErrorText.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <cerrno>

namespace stowline::backup {

namespace {

IndexFault::Kind kindOf(int code, int systemError)
{
    using Kind = IndexFault::Kind;
    if (code == SQLITE_FULL || systemError == ENOSPC || systemError == EDQUOT)
        return Kind::diskFull;
    switch (code) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return Kind::damaged;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return Kind::inUse;
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return Kind::unwritable;
    default:
        return Kind::other;
    }
}

std::string reason(IndexFault::Kind kind, const SQLite::Exception& fault, int systemError)
{
    using Kind = IndexFault::Kind;
    switch (kind) {
    case Kind::damaged:
        return "it is damaged";
    case Kind::inUse:
        return "another program is writing it";
    case Kind::diskFull:
        return "the disk is full";
    case Kind::unwritable:
    case Kind::other:
        break;
    }
    return systemError != 0 ? platform::systemErrorText(systemError) : std::string(fault.what());
}

} // namespace

IndexFault indexFault(const std::filesystem::path& file, const SQLite::Exception& fault,
                      int systemError)
{
    const auto kind = kindOf(fault.getErrorCode(), systemError);
    const char* deed =
        kind == IndexFault::Kind::unwritable ? " cannot be made or written: " : " cannot be used: ";
    const std::string name =
        file.empty() ? "The temporary index" : "The index of the backup, " + file.string() + ",";
    return {kind, name + deed + reason(kind, fault, systemError) + "."};
}

} // namespace stowline::backup
