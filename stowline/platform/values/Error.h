// What an operation that failed hands back through its error out-parameter.
#pragma once

#include "stowline/platform/values/Value.h"

#include <new>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Key of the message in an error's user-info map.
inline constexpr std::string_view kLocalizedDescriptionKey = "localizedDescription";

struct Error {
    std::string domain;
    int code = 0;
    Dictionary userInfo;

    /// The message for people; empty when the user-info map has none.
    [[nodiscard]] std::string localizedDescription() const
    {
        const std::string* message = findString(userInfo, kLocalizedDescriptionKey);
        return message ? *message : std::string();
    }

    /// One line for the log: domain, code and message.
    [[nodiscard]] std::string text() const
    {
        return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" +
               localizedDescription() + "\"";
    }
};

/// An error whose user-info map holds the message and nothing else.
[[nodiscard]] inline Error makeError(std::string domain, int code, std::string message)
{
    return {std::move(domain), code, {{std::string(kLocalizedDescriptionKey), std::move(message)}}};
}

/// Where an operation stores its error; null when the caller does not want one.
using ErrorSlot = std::optional<Error>*;

/// Stores the error of an operation that found no memory, as long as there is some for that.
inline void storeNoMemory(ErrorSlot slot, std::string_view domain, int code) noexcept
{
    try {
        if (slot)
            *slot = makeError(std::string(domain), code,
                              "There is not enough memory. Please close programs and try again.");
    } catch (const std::bad_alloc&) {
        slot->reset();
    }
}

} // namespace stowline::platform

namespace stowline {
using platform::Error;
using platform::ErrorSlot;
} // namespace stowline
#pragma GCC visibility pop
