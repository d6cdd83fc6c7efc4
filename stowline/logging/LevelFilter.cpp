#include "stowline/logging/LevelFilter.h"

#include "stowline/logging/DDLog.h"

#include <array>

namespace stowline {

namespace {

struct NamedLevel {
    std::string_view name;
    std::int32_t flags;
};

constexpr std::array<NamedLevel, 4> kLevels{{{"error", kLogFlagError},
                                             {"warning", kLogFlagError | kLogFlagWarning},
                                             {"info", kSystemLogLevel},
                                             {"verbose", kSystemLogLevel | kLogFlagVerbose}}};

} // namespace

std::vector<std::string> logLevelNames()
{
    std::vector<std::string> names;
    names.reserve(kLevels.size());
    for (const NamedLevel& level : kLevels)
        names.emplace_back(level.name);
    return names;
}

std::int32_t logLevelNamed(std::string_view name)
{
    for (const NamedLevel& level : kLevels) {
        if (level.name == name)
            return level.flags;
    }
    return kSystemLogLevel;
}

std::optional<LogText> LevelFilterLogFormatter::formatLogMessage(const DDLogMessage& message)
{
    if ((message.logFlag & flags_) == 0)
        return std::nullopt;
    return next_ ? next_->formatLogMessage(message) : std::optional(LogText(message));
}

} // namespace stowline
