// A bundle folder that points any host program at this service.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace stowline::devserver {

/// The settings beside this program with the addresses replaced by this service's, as XML.
/// @param address "http://127.0.0.1:port"
/// @return absent when they cannot be read
[[nodiscard]] std::optional<std::string> settingsFor(const std::string& address);

/// Writes "Info.plist" and "Resources/" into a folder: copies of the ones beside this program, with
/// the settings' addresses replaced by this service's.
/// @param address "http://127.0.0.1:port"
/// @return a sentence that says what went wrong; absent when the folder is complete.
[[nodiscard]] std::optional<std::string> writeBundle(const std::filesystem::path& folder,
                                                     const std::string& address);

} // namespace stowline::devserver
