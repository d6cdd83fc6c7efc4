#include "devserver/BundleWriter.h"

#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/text/Url.h"
#include "stowline/platform/values/PropertyList.h"

namespace stowline::devserver {

namespace fs = std::filesystem;

namespace {

/// Where the shipped settings say that the provider's services are.
constexpr std::string_view kShippedAddress = "https://service.stowline.example";
constexpr std::string_view kShippedHost = "service.stowline.example";
constexpr const char* kSettingsName = "TW_WebServicesSettingsFilename";
/// How addresses on a backup server, whose name a call fills in, begin.
constexpr std::string_view kShippedServerAddress = "https://%@/";

/// The value with every text in it pointing at this service.
Value redirected(const Value& value, const std::string& address, const platform::UrlOrigin& origin)
{
    if (const std::string* text = value.string()) {
        const std::string moved = platform::replacingOccurrences(
            platform::replacingOccurrences(*text, kShippedAddress, address), kShippedHost,
            origin.host);
        return platform::replacingOccurrences(moved, kShippedServerAddress,
                                              origin.scheme + "://%@/");
    }
    if (const Array* items = value.array()) {
        Array copy;
        for (const Value& item : *items)
            copy.push_back(redirected(item, address, origin));
        return copy;
    }
    if (const Dictionary* entries = value.dictionary()) {
        Dictionary copy;
        for (const auto& [key, item] : *entries)
            copy.emplace(key, redirected(item, address, origin));
        return copy;
    }
    return value;
}

} // namespace

std::optional<std::string> settingsFor(const std::string& address)
{
    const auto settingsName = platform::Bundle::infoString(kSettingsName);
    const fs::path source = platform::Bundle::resourceFolder() / settingsName.value_or("");
    const auto bytes = settingsName ? platform::readFile(source) : std::nullopt;
    const auto shipped =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const auto origin = platform::originOf(address);
    if (!shipped.value || !origin)
        return std::nullopt;
    return platform::writeXmlPropertyList(redirected(*shipped.value, address, *origin));
}

std::optional<std::string> writeBundle(const fs::path& folder, const std::string& address)
{
    const auto settingsName = platform::Bundle::infoString(kSettingsName);
    const auto settings = settingsFor(address);
    if (!settingsName || !settings)
        return "The settings beside this program cannot be read. Please install it again.";

    std::error_code fault;
    fs::create_directories(folder, fault);
    fs::copy(platform::Bundle::resourceFolder(), folder / "Resources",
             fs::copy_options::recursive | fs::copy_options::overwrite_existing, fault);
    const auto info = platform::writeXmlPropertyList(platform::Bundle::infoDictionary());
    const bool written =
        !fault && info &&
        platform::writeFileAtomically(folder / "Resources" / *settingsName, *settings) &&
        platform::writeFileAtomically(folder / "Info.plist", *info);
    if (!written)
        return "The bundle cannot be written to " + folder.string() +
               ". Please give a folder that you may write to.";
    return std::nullopt;
}

} // namespace stowline::devserver
