// Which build a program is of.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace stowline::platform {

/// A digest of everything that the helper program is made of, and of how it was compiled: 64
/// hexadecimal digits. The library and the program of one build have the same.
[[nodiscard]] std::string_view buildIdentity();

/// The identity in a program's file, where it is kept as an ELF note of the owner "Stowline"
/// (elf(5)); the program is not started.
/// @return absent for a file that cannot be read, is not a program of this machine, or has no note
[[nodiscard]] std::optional<std::string> buildIdentityOfProgram(const std::string& path);

} // namespace stowline::platform
