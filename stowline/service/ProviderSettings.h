// A provider's settings file, fetched from the provider's own address and kept for the user.
#pragma once

#include "stowline/platform/values/Error.h"
#include "stowline/service/SettingsCheck.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// Where a service holds its settings file for hosts: a well-known place (RFC 8615).
inline constexpr std::string_view kProviderSettingsPath = "/.well-known/stowline/settings.plist";

/// Why a provider's settings are not taken.
struct SettingsRefusal {
    enum class Kind {
        address,     ///< it is not an address, or one over which a password must not travel
        unreachable, ///< no answer came, or one that says no; `reason` says why
        notFound,    ///< the service answers, but has no such file
        faulty       ///< what it has cannot be used; `faults` says why
    };
    Kind kind = Kind::unreachable;
    std::string sentence; ///< what happened and what to do about it
    std::vector<SettingsFault> faults;
    FailureKind reason = FailureKind::unspecified; ///< when it is unreachable
};

/// A settings file that was found to be in order.
struct ProviderSettings {
    std::string bytes;
    std::vector<std::string> origins; ///< where its calls go, as "https://host", each once, sorted
};

/// Fetches the settings file of a service and looks it over.
///
/// What it says decides where passwords go, so it is taken over https alone, or from this machine
/// itself ("localhost", 127.0.0.0/8, "::1"), and every address in it must be of the same kind: of a
/// file that came over https, all are https.
/// @param address "https://backup.example.com"; without a scheme it is taken for https. A path in
///        it names the file, else the file is in the well-known place
///
/// Blocks for at most 30 seconds. Follows no redirect to another origin. Any thread. Throws
/// std::bad_alloc alone.
[[nodiscard]] std::variant<ProviderSettings, SettingsRefusal>
fetchProviderSettings(const std::string& address);

/// The file in which a provider's settings are kept for the user, whether there is one or not:
/// "provider.plist" in the configuration folder; absent when that has no place.
[[nodiscard]] std::optional<std::filesystem::path> keptProviderSettings();

} // namespace stowline
#pragma GCC visibility pop
