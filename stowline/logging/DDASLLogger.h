// Log messages in the machine's log.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"

#include <memory>

#pragma GCC visibility push(default)
namespace stowline {

/// Hands each message to the system log: the formatter's answer, or the message's text. The
/// priority follows the message's level (not its flag): 1 is critical, 2 error, 3 warning, any
/// other notice; so what this library logs itself (level 7) is always a notice, which the system's
/// usual filters keep.
class DDASLLogger final : public DDAbstractLogger {
public:
    /// The one instance of the process, made on first use.
    [[nodiscard]] static std::shared_ptr<DDASLLogger> sharedInstance();

    /// A new instance; null, because the one exists already or is made by this.
    [[nodiscard]] static std::shared_ptr<DDASLLogger> init();

    void logMessage(const DDLogMessage& message) override;

private:
    DDASLLogger() : DDAbstractLogger("com.Stowline.logging.aslLogger") {}
};

} // namespace stowline
#pragma GCC visibility pop
