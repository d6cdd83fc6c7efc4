// Which messages a sink takes, by their importance.
#pragma once

#include "stowline/logging/DDAbstractLogger.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// What people call the levels: "error", "warning", "info", "verbose".
[[nodiscard]] std::vector<std::string> logLevelNames();

/// The flags that a level of that name lets through; those of "info" for any other name.
[[nodiscard]] std::int32_t logLevelNamed(std::string_view name);

/// Passes messages that have one of some flags on to another formatter; without one, unchanged.
class LevelFilterLogFormatter final : public DDLogFormatter {
public:
    explicit LevelFilterLogFormatter(std::int32_t flags,
                                     std::shared_ptr<DDLogFormatter> next = nullptr)
        : flags_(flags), next_(std::move(next))
    {
    }
    [[nodiscard]] std::optional<LogText> formatLogMessage(const DDLogMessage& message) override;

private:
    const std::int32_t flags_;
    const std::shared_ptr<DDLogFormatter> next_;
};

} // namespace stowline
#pragma GCC visibility pop
