// The log on standard error, for -v.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"

namespace stowline::cli {

/// Writes every message to standard error. Control characters in it are shown as "?", so that a
/// message cannot steer the terminal.
class VerboseLogger final : public DDAbstractLogger {
public:
    VerboseLogger() : DDAbstractLogger("VerboseLogger") {}
    void logMessage(const DDLogMessage& message) override;
};

} // namespace stowline::cli
