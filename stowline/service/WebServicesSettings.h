// The settings file: what every call looks like.
#pragma once

#include "stowline/platform/values/Value.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// A property list in the main bundle's resource folder, named by the information dictionary's
/// "TW_WebServicesSettingsFilename"; the name is appended to the folder's path, and one that leads
/// out of the folder names no file. It is loaded once, when first asked for; a file that is
/// missing or no dictionary stays missing, and every lookup is then absent. Nothing is checked or
/// defaulted here. Any thread. Nothing is thrown; for want of memory a lookup is absent.
class WebServicesSettings {
public:
    WebServicesSettings() = delete;

    /// Takes the settings from this file instead of the bundle's. Before first use only.
    static void useFile(std::filesystem::path file);

    /// Where the settings are, whether there is a file or not; absent when the bundle names none.
    [[nodiscard]] static std::optional<std::filesystem::path> file();

    /// The whole file; absent when it could not be loaded.
    [[nodiscard]] static const std::optional<Dictionary>& settingsDictionary();

    /// The entry of "Templates" with a name. (The underscore sets it apart from the C++ word.)
    [[nodiscard]] static std::optional<Dictionary> template_(std::string_view name);

    /// The entry of "WebServices" with a name.
    [[nodiscard]] static std::optional<Dictionary> webMethodInfo(std::string_view name);

    /// The entry of "WebRequests" with a name.
    [[nodiscard]] static std::optional<Dictionary> webRequestInfo(std::string_view name);

    /// "ReachabilityHost" of "URLS".
    [[nodiscard]] static std::optional<std::string> reachabilityHost();

    /// An entry of "URLS". An absent key is absent without loading the file.
    [[nodiscard]] static std::optional<std::string> linkForKey(std::optional<std::string_view> key);
};

} // namespace stowline
#pragma GCC visibility pop
