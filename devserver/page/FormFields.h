// The fields of a form that a browser sends.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace stowline::devserver {

/// A field of a body of the type application/x-www-form-urlencoded, decoded: the first of its name.
/// "%" without two hexadecimal digits stands for itself. Absent when there is none.
[[nodiscard]] std::optional<std::string> formField(std::string_view body, std::string_view name);

/// The value of the first cookie of a name in a Cookie header (RFC 6265 section 4.2); absent when
/// there is none.
[[nodiscard]] std::optional<std::string> cookieNamed(std::string_view header,
                                                     std::string_view name);

} // namespace stowline::devserver
