// Log lines on the terminal that the program was started from.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"

#include <memory>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Writes each message as one line to standard error, in one gathered write, when standard error is
/// a terminal at the moment the logger is made; else it stays silent for the life of the process.
///
/// "2013-06-01 09:30:00:125 BackupAgent[4711:1a03] Upload started.": local time, process, its id,
/// the thread's number in hexadecimal, text. A text that a formatter made is written as it is,
/// without what comes before. A line feed always follows, also after a text that ends with one.
/// Control characters of the text but line feed and tab are written as "?", because a message may
/// come from anywhere and must not command a person's terminal.
class DDTTYLogger final : public DDAbstractLogger {
public:
    /// The one instance of the process, made on first use.
    [[nodiscard]] static std::shared_ptr<DDTTYLogger> sharedInstance();

    /// A new instance; null, because the one exists already or is made by this.
    [[nodiscard]] static std::shared_ptr<DDTTYLogger> init();

    void logMessage(const DDLogMessage& message) override;

private:
    DDTTYLogger();

    const bool isaTTY_;
    std::string app_;
    std::string pid_;
};

} // namespace stowline
#pragma GCC visibility pop
