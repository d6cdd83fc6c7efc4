// Lines with the time and the queue or thread that logged them.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// Writes "2013-06-01 09:30:00:125 [main  ] Upload started.": local time, the label of the queue
/// that was current at the call (or what replaces it; without label the thread's number in
/// lower-case hexadecimal), and the message's text. Names are padded or cut to one length, in
/// characters. Any thread, and several loggers at once.
class DispatchQueueLogFormatter final : public DDLogFormatter {
public:
    DispatchQueueLogFormatter();

    /// Length of the names: 6 until it is set. Kept within 4 to 35.
    [[nodiscard]] std::int32_t queueLength() const;
    void setQueueLength(std::int32_t length);

    /// Whether names are padded on the left and keep their end; false until it is set.
    [[nodiscard]] bool rightAlign() const;
    void setRightAlign(bool rightAlign);

    /// What stands for a queue's label; absent for the label itself. "com.apple.main-thread" is
    /// "main" until that is changed.
    [[nodiscard]] std::optional<std::string>
    replacementStringForQueueLabel(std::string_view label) const;
    void setReplacementString(std::optional<std::string> name, std::string_view forQueueLabel);

    [[nodiscard]] std::optional<LogText> formatLogMessage(const DDLogMessage& message) override;

private:
    mutable platform::ForkSafeMutex mutex_;
    std::int32_t queueLength_ = 6;
    bool rightAlign_ = false;
    std::map<std::string, std::string, std::less<>> replacements_;
};

} // namespace stowline
#pragma GCC visibility pop
