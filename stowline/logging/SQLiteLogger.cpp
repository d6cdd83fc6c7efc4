#include "stowline/logging/SQLiteLogger.h"

#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/files/FileHandle.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace stowline {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostUnsaved = 100000;
constexpr int kPatienceMilliseconds = 1000;
constexpr int kBusy = 5; // SQLITE_BUSY

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS log (id INTEGER PRIMARY KEY, timestamp INTEGER NOT NULL, "
    "level INTEGER NOT NULL, flag INTEGER NOT NULL, context INTEGER NOT NULL, file TEXT NOT NULL, "
    "function TEXT NOT NULL, line INTEGER NOT NULL, thread TEXT NOT NULL, queue TEXT NOT NULL, "
    "text TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS log_timestamp ON log (timestamp);";

constexpr const char* kColumns =
    "timestamp, level, flag, context, file, function, line, thread, queue, text";

std::int64_t microseconds(Date date)
{
    return date.time_since_epoch().count();
}

void store(std::string* slot, std::string sentence)
{
    if (slot)
        *slot = std::move(sentence);
}

LogEntry entryOf(SQLite::Statement& row)
{
    return {.text = row.getColumn(9).getString(),
            .level = row.getColumn(1).getInt(),
            .flag = row.getColumn(2).getInt(),
            .context = row.getColumn(3).getInt(),
            .file = row.getColumn(4).getString(),
            .function = row.getColumn(5).getString(),
            .line = row.getColumn(6).getInt(),
            .timestamp = Date(std::chrono::microseconds(row.getColumn(0).getInt64())),
            .thread = row.getColumn(7).getString(),
            .queue = row.getColumn(8).getString()};
}

/// "WHERE" and what the query asks for, with a "?" for each value that bindQuery() binds.
std::string conditionsOf(const LogQuery& query)
{
    std::string text = " WHERE (flag & ?) <> 0";
    if (query.contains)
        text += " AND instr(text, ?) > 0";
    if (query.since)
        text += " AND timestamp >= ?";
    if (query.before)
        text += " AND timestamp < ?";
    return text;
}

void bindQuery(SQLite::Statement& statement, const LogQuery& query)
{
    int place = 0;
    statement.bind(++place, query.flags);
    if (query.contains)
        statement.bind(++place, *query.contains);
    if (query.since)
        statement.bind(++place, microseconds(*query.since));
    if (query.before)
        statement.bind(++place, microseconds(*query.before));
    statement.bind(++place,
                   static_cast<std::int64_t>(std::min<std::size_t>(query.limit, INT64_MAX)));
}

/// Tries again for a while what finds the database locked.
template <class Work> void patiently(Work work)
{
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMilliseconds);
    for (;;) {
        try {
            return work();
        } catch (const SQLite::Exception& fault) {
            if (fault.getErrorCode() != kBusy || std::chrono::steady_clock::now() >= end)
                throw;
        }
        // Whoever logs without pause holds it nearly all the time: many looks find a gap.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace

/// The database; operations throw SQLite::Exception.
class SQLiteLogger::Database {
public:
    explicit Database(const std::string& path) : database_(path, SQLite::OPEN_READWRITE)
    {
        // A commit in WAL mode survives the end of the process without waiting for the disk.
        database_.exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
        database_.exec(kSchema);
        insert_.emplace(database_, std::string("INSERT INTO log (") + kColumns +
                                       ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        delete_.emplace(database_, "DELETE FROM log WHERE timestamp < ?");
    }

    /// Both or neither.
    void saveAndDelete(const std::vector<LogEntry>& entries, std::optional<Date> olderThan)
    {
        SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
        for (const LogEntry& entry : entries)
            insert(entry);
        if (olderThan) {
            delete_->reset();
            delete_->bind(1, microseconds(*olderThan));
            delete_->exec();
        }
        transaction.commit();
    }

private:
    void insert(const LogEntry& entry)
    {
        SQLite::Statement& row = *insert_;
        row.reset();
        row.bind(1, microseconds(entry.timestamp));
        row.bind(2, entry.level);
        row.bind(3, entry.flag);
        row.bind(4, entry.context);
        row.bindNoCopy(5, entry.file);
        row.bindNoCopy(6, entry.function);
        row.bind(7, entry.line);
        row.bindNoCopy(8, entry.thread);
        row.bindNoCopy(9, entry.queue);
        row.bindNoCopy(10, entry.text);
        row.exec();
        row.reset();
    }

    SQLite::Database database_;
    std::optional<SQLite::Statement> insert_;
    std::optional<SQLite::Statement> delete_;
};

std::shared_ptr<SQLiteLogger> SQLiteLogger::open(const std::string& path, std::string* fault,
                                                 platform::TimerClock& clock)
{
    try {
        if (platform::FileHandle::create(path))
            fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
        std::unique_ptr<Database> database;
        patiently([&] { database = std::make_unique<Database>(path); });
        return std::shared_ptr<SQLiteLogger>(new SQLiteLogger(path, std::move(database), clock));
    } catch (const SQLite::Exception& refused) {
        store(fault, "The log database " + path + " cannot be opened: " + refused.what() + ".");
    } catch (const std::exception& refused) {
        store(fault, std::string("The log database cannot be made: ") + refused.what() + ".");
    }
    return nullptr;
}

SQLiteLogger::SQLiteLogger(std::string path, std::unique_ptr<Database> database,
                           platform::TimerClock& clock)
    : DDAbstractDatabaseLogger("com.Stowline.logging.sqliteLogger", clock), path_(std::move(path)),
      database_(std::move(database))
{
}

SQLiteLogger::~SQLiteLogger()
{
    shutDown();
}

/// No connection may be open while a process forks, used in the child or not (SQLite, "How To
/// Corrupt An SQLite Database File", 2.6): both sides open it anew.
void SQLiteLogger::beforeFork()
{
    database_.reset();
}

/// What is unsaved is the parent's.
void SQLiteLogger::afterForkInChild()
{
    unsaved_.clear();
    isTold_ = false;
}

bool SQLiteLogger::db_log(const DDLogMessage& message)
{
    const auto text = formattedText(message);
    if (!text)
        return false;
    const platform::WholeInFork whole;
    if (unsaved_.size() >= kMostUnsaved)
        unsaved_.erase(unsaved_.begin(),
                       unsaved_.begin() + static_cast<std::ptrdiff_t>(kMostUnsaved / 10));
    unsaved_.push_back({.text = std::string(text->view()),
                        .level = message.logLevel,
                        .flag = message.logFlag,
                        .context = message.logContext,
                        .file = std::string(message.fileName()),
                        .function = std::string(message.methodName().value_or("")),
                        .line = message.lineNumber,
                        .timestamp = message.timestamp,
                        .thread = message.threadID(),
                        .queue = message.queueLabel.value_or("")});
    return true;
}

void SQLiteLogger::db_save()
{
    saveAndDelete(std::nullopt);
}

void SQLiteLogger::db_delete()
{
    saveAndDelete(oldest());
}

void SQLiteLogger::db_saveAndDelete()
{
    saveAndDelete(oldest());
}

Date SQLiteLogger::oldest()
{
    const auto age = std::chrono::duration<double>(maxAge());
    return platform::currentDate() - std::chrono::duration_cast<std::chrono::microseconds>(age);
}

void SQLiteLogger::saveAndDelete(std::optional<Date> olderThan)
{
    try {
        patiently([&] {
            const platform::WholeInFork whole;
            if (!database_)
                database_ = std::make_unique<Database>(path_);
            database_->saveAndDelete(unsaved_, olderThan);
            unsaved_.clear();
        });
        isTold_ = false;
    } catch (const SQLite::Exception& fault) {
        if (!std::exchange(isTold_, true))
            platform::consoleLog(std::string("The log database cannot be written: ") +
                                 fault.what() + ". The entries are kept and tried again.");
    }
}

std::optional<std::vector<LogEntry>>
SQLiteLogger::entries(const std::string& path, const LogQuery& query, std::string* fault)
{
    try {
        SQLite::Database database(path, SQLite::OPEN_READONLY, kPatienceMilliseconds);
        SQLite::Statement rows(database, std::string("SELECT ") + kColumns + " FROM log" +
                                             conditionsOf(query) + " ORDER BY id LIMIT ?");
        bindQuery(rows, query);
        std::vector<LogEntry> found;
        while (rows.executeStep())
            found.push_back(entryOf(rows));
        return found;
    } catch (const SQLite::Exception& refused) {
        store(fault, "The log database " + path + " cannot be read: " + refused.what() + ".");
        return std::nullopt;
    }
}

} // namespace stowline
