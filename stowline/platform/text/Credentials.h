// Names and passwords in addresses.
#pragma once

#include <string>
#include <string_view>

namespace stowline::platform {

/// The text with the "user:password@" of every address in it left out, also of addresses that
/// cannot be parsed ("http://user:pa ss@host:99999") and of those without a scheme
/// ("user:password@host"). For everything that is shown or logged and may hold an address.
[[nodiscard]] std::string textWithoutCredentials(std::string_view text);

/// The same of a text that is one address and nothing else, as settings hold it. Leaves out more
/// than that: also a password with blanks of an address without a scheme ("user:pass word@host").
[[nodiscard]] std::string addressWithoutCredentials(std::string_view address);

} // namespace stowline::platform
