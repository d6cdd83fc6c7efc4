// A log that can be searched, in an SQLite database.
#pragma once

#include "stowline/logging/DDAbstractDatabaseLogger.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// What to look for in a kept log. Conditions that are absent do not count.
struct LogQuery {
    std::optional<std::string> contains = {}; ///< of the text; exact, case counts
    std::optional<Date> since = {};
    std::optional<Date> before = {};
    std::int32_t flags = -1; ///< entries with one of these flags
    std::size_t limit = 1000;
};

/// One message as it was kept.
struct LogEntry {
    std::string text;
    std::int32_t level = 0;
    std::int32_t flag = 0;
    std::int32_t context = 0;
    std::string file; ///< without folders and extension
    std::string function;
    std::int32_t line = 0;
    Date timestamp;
    std::string thread; ///< its number in hexadecimal
    std::string queue;  ///< empty without label
};

/// Keeps messages in a table "log" (docs/formats/log-database.md), saved in batches as the base has
/// it; WAL, so that others can read meanwhile. What was saved survives the end of the process.
///
/// Trouble never reaches the caller. A batch that cannot be saved (a full disk, a locked database)
/// is told to the machine's log once a spell, kept, and tried again with the next save, the last
/// time by the flush at the end of the process: what is refused then, for a second, is lost. Beyond
/// 100,000 kept entries the oldest 10,000 are dropped. The text is what the formatter makes of the
/// message. A fork() waits for a save that is being made, and the database is opened anew after it.
class SQLiteLogger final : public DDAbstractDatabaseLogger, private platform::ForkParticipant {
public:
    /// @param path made when missing (mode 0600); its folder must exist
    /// @return null with a sentence when it cannot be opened or is something else
    [[nodiscard]] static std::shared_ptr<SQLiteLogger>
    open(const std::string& path, std::string* fault,
         platform::TimerClock& clock = platform::TimerClock::shared());
    ~SQLiteLogger() override;

    /// Entries of a kept log, the oldest first. Any thread, also while somebody writes it.
    /// @return absent with a sentence when the file cannot be read or is something else
    [[nodiscard]] static std::optional<std::vector<LogEntry>>
    entries(const std::string& path, const LogQuery& query, std::string* fault);

private:
    class Database;
    SQLiteLogger(std::string path, std::unique_ptr<Database> database, platform::TimerClock& clock);
    [[nodiscard]] bool db_log(const DDLogMessage& message) override;
    void db_save() override;
    void db_delete() override;
    void db_saveAndDelete() override;
    [[nodiscard]] bool db_hasRefused() const override { return !unsaved_.empty(); }
    [[nodiscard]] Date oldest();
    void saveAndDelete(std::optional<Date> olderThan);

    void beforeFork() override;
    void afterForkInParent() override {}
    void afterForkInChild() override;

    const std::string path_;
    std::unique_ptr<Database> database_; ///< null after a fork until the next save
    std::vector<LogEntry> unsaved_;
    bool isTold_ = false; ///< the machine's log has been told of the trouble there is now
    const platform::ForkRegistration registration_{*this};
};

} // namespace stowline
#pragma GCC visibility pop
