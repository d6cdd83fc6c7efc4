// Reading what the service says of its success.
#pragma once

#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/values/Value.h"

#include <optional>
#include <string_view>

namespace stowline {

/// Whether a result code says that the service did it: its lower-case form is "success".
[[nodiscard]] inline bool isSuccessCode(std::string_view code)
{
    return platform::lowercased(code) == "success";
}

/// The same of a result; false for anything but text.
[[nodiscard]] inline bool saysSuccess(const std::optional<Value>& result)
{
    return result && result->string() && isSuccessCode(*result->string());
}

} // namespace stowline
