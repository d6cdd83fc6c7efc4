// Formatters that pass or drop messages by their context.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"
#include "stowline/platform/threads/ForkSafety.h"

#include <cstdint>
#include <set>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// A set of logging contexts. Any thread.
class LoggingContextSet {
public:
    void addToSet(std::int32_t context);
    void removeFromSet(std::int32_t context);

    /// The contexts in the set at this moment.
    [[nodiscard]] std::vector<std::int32_t> currentSet() const;
    [[nodiscard]] bool isInSet(std::int32_t context) const;

private:
    mutable platform::ForkSafeMutex mutex_;
    std::set<std::int32_t> set_;
};

/// Passes messages whose context is on the list, unchanged; an empty list passes none. The list may
/// be changed from any thread while loggers use the formatter.
class ContextWhitelistFilterLogFormatter final : public DDLogFormatter {
public:
    void addToWhitelist(std::int32_t context) { contextSet_.addToSet(context); }
    void removeFromWhitelist(std::int32_t context) { contextSet_.removeFromSet(context); }
    [[nodiscard]] std::vector<std::int32_t> whitelist() const { return contextSet_.currentSet(); }
    [[nodiscard]] bool isOnWhitelist(std::int32_t context) const
    {
        return contextSet_.isInSet(context);
    }
    [[nodiscard]] std::optional<LogText> formatLogMessage(const DDLogMessage& message) override;

private:
    LoggingContextSet contextSet_;
};

/// Drops messages whose context is on the list; an empty list drops none.
class ContextBlacklistFilterLogFormatter final : public DDLogFormatter {
public:
    void addToBlacklist(std::int32_t context) { contextSet_.addToSet(context); }
    void removeFromBlacklist(std::int32_t context) { contextSet_.removeFromSet(context); }
    [[nodiscard]] std::vector<std::int32_t> blacklist() const { return contextSet_.currentSet(); }
    [[nodiscard]] bool isOnBlacklist(std::int32_t context) const
    {
        return contextSet_.isInSet(context);
    }
    [[nodiscard]] std::optional<LogText> formatLogMessage(const DDLogMessage& message) override;

private:
    LoggingContextSet contextSet_;
};

} // namespace stowline
#pragma GCC visibility pop
