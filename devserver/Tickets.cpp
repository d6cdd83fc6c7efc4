#include "devserver/Tickets.h"

#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/Text.h"

#include <sqlite3.h>

namespace stowline::devserver {

namespace {

constexpr const char* kSchema = R"sql(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = NORMAL;
    CREATE TABLE IF NOT EXISTS tickets (
        digest        TEXT PRIMARY KEY,
        user_name     TEXT NOT NULL,
        password_mark TEXT NOT NULL,
        ends_at       INTEGER NOT NULL
    ) STRICT;
)sql";

constexpr int kBusyMilliseconds = 5000;
constexpr std::size_t kTicketBytes = 32; // too many to guess, so no salt and no slow hash is needed

} // namespace

Tickets::Tickets(const std::filesystem::path& databaseFile, Accounts& accounts,
                 std::chrono::seconds lifetime, std::function<Clock::time_point()> now)
    : accounts_(accounts), lifetime_(lifetime), now_(std::move(now)),
      database_(databaseFile.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                kBusyMilliseconds)
{
    database_.exec(kSchema);
}

std::int64_t Tickets::secondsNow() const
{
    return std::chrono::floor<std::chrono::seconds>(now_()).time_since_epoch().count();
}

std::string Tickets::give(const std::string& userName)
{
    std::string ticket = platform::hexadecimalText(platform::randomBytes(kTicketBytes));
    const std::string mark = accounts_.passwordMark(userName).value_or("");
    const std::lock_guard lock(mutex_);
    SQLite::Statement over(database_, "DELETE FROM tickets WHERE ends_at <= ?");
    over.bind(1, secondsNow());
    over.exec();
    SQLite::Statement insert(database_, "INSERT INTO tickets (digest, user_name, password_mark,"
                                        " ends_at) VALUES (?,?,?,?)");
    insert.bind(1, platform::Sha256::of(ticket));
    insert.bind(2, userName);
    insert.bind(3, mark);
    const std::int64_t endsAt = secondsNow() + lifetime_.count();
    insert.bind(4, endsAt);
    insert.exec();
    return ticket;
}

bool Tickets::isGood(const std::string& ticket, const std::string& userName)
{
    const auto mark = accounts_.passwordMark(userName);
    if (!mark)
        return false;
    const std::lock_guard lock(mutex_);
    SQLite::Statement query(database_, "SELECT 1 FROM tickets WHERE digest = ? AND user_name = ?"
                                       " AND password_mark = ? AND ends_at > ?");
    query.bind(1, platform::Sha256::of(ticket));
    query.bind(2, userName);
    query.bind(3, *mark);
    query.bind(4, secondsNow());
    return query.executeStep();
}

} // namespace stowline::devserver
