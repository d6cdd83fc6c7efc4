// Base of loggers that store messages in a database: saves in batches, deletes what is old.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"
#include "stowline/platform/threads/Timer.h"

#include <cstddef>
#include <memory>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Decides when a database logger saves and deletes. A concrete logger overrides the four db_
/// operations, which are called on the logger's own queue, one at a time, and calls shutDown() in
/// its destructor.
///
/// Unsaved entries are saved when there are saveThreshold of them, saveInterval after the first of
/// them, on flush and on removal. Entries older than maxAge are deleted every deleteInterval while
/// the logger is registered, or on every save.
///
/// What the operations throw is told to the machine's log. In the child of a fork() nothing is
/// unsaved: that is the parent's to save.
///
/// Settings: at once on the logger's own queue; from elsewhere they are read in turn on it, and
/// changed in turn without waiting. Setting the same value again does nothing. Any thread.
class DDAbstractDatabaseLogger : public DDAbstractLogger {
public:
    explicit DDAbstractDatabaseLogger(std::string loggerName = "DDAbstractDatabaseLogger",
                                      platform::TimerClock& clock = platform::TimerClock::shared());
    ~DDAbstractDatabaseLogger() override;

    /// 500 until it is set; 0 for no saving by count.
    [[nodiscard]] std::size_t saveThreshold();
    void setSaveThreshold(std::size_t entries);

    /// Seconds; 60 until it is set; 0 or less for no saving by time.
    [[nodiscard]] double saveInterval();
    void setSaveInterval(double seconds);

    /// Seconds; 604800 (a week) until it is set; 0 or less for no deletion. Shortening it, and
    /// setting one where there was none, deletes at once.
    [[nodiscard]] double maxAge();
    void setMaxAge(double seconds);

    /// Seconds; 300 until it is set; 0 or less for no deletion by time.
    [[nodiscard]] double deleteInterval();
    void setDeleteInterval(double seconds);

    /// Whether saving and deleting happen together on every save; false until it is set.
    [[nodiscard]] bool deleteOnEverySave();
    void setDeleteOnEverySave(bool together);

    /// At once on the logger's own queue, from elsewhere in turn on it without waiting.
    void savePendingLogEntries();
    void deleteOldLogEntries();

    void logMessage(const DDLogMessage& message) override;
    void didAddLogger() override;
    void willRemoveLogger() override;
    void flush() override;

protected:
    /// Takes one message for the next save. @return whether it was taken; the base takes none
    [[nodiscard]] virtual bool db_log(const DDLogMessage& message);
    virtual void db_save() {}
    virtual void db_delete() {}
    virtual void db_saveAndDelete() {}

    /// Whether the last save left entries unsaved, to be tried again: on the next save, after the
    /// next interval, on flush and on removal. The base leaves none.
    [[nodiscard]] virtual bool db_hasRefused() const { return false; }

    /// Saves what is unsaved and ends the timers; none of the operations above is called any more.
    /// First thing in the destructor of every concrete logger.
    void shutDown();

private:
    class Batches;
    /// Shared with changes and timers that are on their way.
    const std::shared_ptr<Batches> batches_;
};

} // namespace stowline
#pragma GCC visibility pop
