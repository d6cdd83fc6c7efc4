#include "stowline/logging/ContextFilters.h"

#include <mutex>

namespace stowline {

void LoggingContextSet::addToSet(std::int32_t context)
{
    const std::lock_guard lock(mutex_);
    set_.insert(context);
}

void LoggingContextSet::removeFromSet(std::int32_t context)
{
    const std::lock_guard lock(mutex_);
    set_.erase(context);
}

std::vector<std::int32_t> LoggingContextSet::currentSet() const
{
    const std::lock_guard lock(mutex_);
    return {set_.begin(), set_.end()};
}

bool LoggingContextSet::isInSet(std::int32_t context) const
{
    const std::lock_guard lock(mutex_);
    return set_.contains(context);
}

std::optional<LogText>
ContextWhitelistFilterLogFormatter::formatLogMessage(const DDLogMessage& message)
{
    return isOnWhitelist(message.logContext) ? std::optional(LogText(message)) : std::nullopt;
}

std::optional<LogText>
ContextBlacklistFilterLogFormatter::formatLogMessage(const DDLogMessage& message)
{
    return isOnBlacklist(message.logContext) ? std::nullopt : std::optional(LogText(message));
}

} // namespace stowline
