// Texts of a form: "?" is any character, "*" any number of them.
#pragma once

#include <string_view>

namespace stowline::store {

/// The name under which SQL knows isOfForm().
inline constexpr const char* kIsOfForm = "is_of_form";

/// Whether a whole text, NUL characters included, is of a form. "\" takes the meaning from what
/// follows it; at the end of the form it is itself. A character is a code point of UTF-8; a byte
/// that belongs to none counts as one. Any thread.
[[nodiscard]] bool isOfForm(std::string_view text, std::string_view form);

} // namespace stowline::store
