// The operating system below.
#pragma once

#include <filesystem>
#include <string>

namespace stowline::platform {

/// The operating system's version: "ProductVersion" of the property list
/// "System/Library/CoreServices/SystemVersion.plist", else VERSION_ID of "etc/os-release"
/// (os-release(5)), as "12"; empty when neither can be read.
/// @param root the folder that stands for "/"
[[nodiscard]] std::string operatingSystemVersion(const std::filesystem::path& root = "/");

} // namespace stowline::platform
