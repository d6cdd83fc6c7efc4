// What a formatter makes of a message.
#pragma once

#include "stowline/logging/DDLogMessage.h"

#include <string>
#include <string_view>
#include <utility>
#include <variant>

#pragma GCC visibility push(default)
namespace stowline {

/// The text to log: the message's own text itself, or another one (which may read the same). Sinks
/// tell the two apart by which it is, not by what it says.
class LogText {
public:
    /// The message's own text; valid as long as the message.
    explicit LogText(const DDLogMessage& message) : text_(&message.logMsg) {}
    LogText(std::string text) : text_(std::move(text)) {}
    LogText(const char* text) : text_(std::string(text)) {}

    [[nodiscard]] bool isMessagesOwn() const
    {
        return std::holds_alternative<const std::string*>(text_);
    }
    [[nodiscard]] std::string_view view() const
    {
        return isMessagesOwn() ? *std::get<const std::string*>(text_)
                               : std::get<std::string>(text_);
    }

    /// The text as a string of its own; without copying when it is not the message's.
    [[nodiscard]] std::string take() &&
    {
        if (std::string* own = std::get_if<std::string>(&text_))
            return std::move(*own);
        return *std::get<const std::string*>(text_);
    }

private:
    std::variant<const std::string*, std::string> text_;
};

} // namespace stowline
#pragma GCC visibility pop
