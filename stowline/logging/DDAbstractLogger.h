// What a logger is, and the base that most loggers derive from.
#pragma once

#include "stowline/logging/DDLogMessage.h"
#include "stowline/logging/LogText.h"
#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/threads/SerialQueue.h"

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Rewrites or drops messages for a logger. Called on the logger's queue.
class DDLogFormatter {
public:
    virtual ~DDLogFormatter() = default;

    /// @return the text to log; absent to drop the message.
    [[nodiscard]] virtual std::optional<LogText> formatLogMessage(const DDLogMessage& message) = 0;
};

/// A destination of log messages. The dispatcher calls every operation below on the logger's own
/// serial queue, one at a time. A logger must not log synchronously from there.
class DDLogger {
public:
    virtual ~DDLogger() = default;

    virtual void logMessage(const DDLogMessage& message) = 0;

    /// For loggers that write several messages faster than one after the other: whether this is
    /// one. While it is the only logger it is handed messages that are queued one after the other
    /// in one call; when that returns they all count as delivered.
    [[nodiscard]] virtual bool takesMessagesTogether() const { return false; }
    virtual void logMessages(std::span<const std::shared_ptr<const DDLogMessage>> messages)
    {
        for (const auto& message : messages)
            logMessage(*message);
    }

    /// The formatter in use, and a new one for it; null for none. Any thread.
    [[nodiscard]] virtual std::shared_ptr<DDLogFormatter> logFormatter() = 0;
    virtual void setLogFormatter(std::shared_ptr<DDLogFormatter> formatter) = 0;

    virtual void didAddLogger() {}
    virtual void willRemoveLogger() {}
    virtual void flush() {}

    /// The queue to be called on; null lets the dispatcher make one, labelled with the name.
    [[nodiscard]] virtual std::shared_ptr<platform::SerialQueue> loggerQueue() { return nullptr; }
    [[nodiscard]] virtual std::string loggerName() const { return {}; }
};

/// Base of loggers: keeps the formatter and has a serial queue of its own.
class DDAbstractLogger : public DDLogger {
public:
    /// @param loggerName labels the logger's queue; by convention the name of the class
    explicit DDAbstractLogger(std::string loggerName = "DDAbstractLogger");

    /// Does nothing; every sink overrides it.
    void logMessage(const DDLogMessage& message) override;

    /// On the logger's own queue answers at once; from elsewhere in turn with the messages, by way
    /// of the logging queue, so that it waits for what was logged before.
    [[nodiscard]] std::shared_ptr<DDLogFormatter> logFormatter() final;

    /// On the logger's own queue takes effect at once; from elsewhere in turn with the messages,
    /// without waiting: messages logged before still meet the old formatter.
    void setLogFormatter(std::shared_ptr<DDLogFormatter> formatter) final;

    [[nodiscard]] std::shared_ptr<platform::SerialQueue> loggerQueue() final;
    [[nodiscard]] std::string loggerName() const override;

protected:
    /// The text to log for a message: the formatter's answer, or the message's own text when there
    /// is not a formatter; absent when the formatter drops it. For logMessage().
    [[nodiscard]] std::optional<LogText> formattedText(const DDLogMessage& message);

    /// For settings that are read and changed in turn with the messages: runs at once on the
    /// logger's own queue; from elsewhere by way of the logging queue, waiting for it or not.
    /// Inside of another logger reading does not wait for its turn, so what is read has a lock of
    /// its own. A change for which there is no memory is not made; what one throws is told to the
    /// machine's log.
    void readInTurn(const std::function<void()>& read);
    void changeInTurn(platform::SerialQueue::Task change);

private:
    struct FormatterSlot {
        platform::ForkSafeMutex mutex;
        std::shared_ptr<DDLogFormatter> formatter;
        std::shared_ptr<DDLogFormatter> get();
        void set(std::shared_ptr<DDLogFormatter> newFormatter);
    };

    const std::string name_;
    /// Shared with changes that are still on their way when the logger goes.
    const std::shared_ptr<FormatterSlot> slot_;
    const std::shared_ptr<platform::SerialQueue> queue_;
};

} // namespace stowline
#pragma GCC visibility pop
