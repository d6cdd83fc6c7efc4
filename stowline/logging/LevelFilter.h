// Which messages a sink takes, by their importance.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

namespace stowline {

/// What people call the levels, and the flags that each lets through.
inline constexpr std::array<std::pair<std::string_view, std::int32_t>, 4> kLevelNames{
    {{"error", 1}, {"warning", 3}, {"info", 7}, {"verbose", 15}}};

/// Passes messages that have one of some flags on to another formatter; without one, unchanged.
class LevelFilterLogFormatter final : public DDLogFormatter {
public:
    explicit LevelFilterLogFormatter(std::int32_t flags,
                                     std::shared_ptr<DDLogFormatter> next = nullptr)
        : flags_(flags), next_(std::move(next))
    {
    }
    [[nodiscard]] std::optional<LogText> formatLogMessage(const DDLogMessage& message) override
    {
        if ((message.logFlag & flags_) == 0)
            return std::nullopt;
        return next_ ? next_->formatLogMessage(message) : std::optional(LogText(message));
    }

private:
    const std::int32_t flags_;
    const std::shared_ptr<DDLogFormatter> next_;
};

} // namespace stowline
