// What the library says in its log about a failure that it does not hand back.
#pragma once

#include "stowline/logging/DDLog.h"

#include <string>

namespace stowline::cli {

/// A logger that keeps the last error line.
class LastError final : public DDAbstractLogger {
public:
    void logMessage(const DDLogMessage& message) override
    {
        if (message.logFlag == kLogFlagError)
            text_ = message.logMsg;
    }
    /// After a flush of the log.
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string text_;
};

} // namespace stowline::cli
