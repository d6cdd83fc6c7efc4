#include "stowline/service/WebServicesSettings.h"

#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"

namespace stowline {

namespace {

std::optional<Dictionary> loadSettings()
{
    const auto name = platform::Bundle::infoString("TW_WebServicesSettingsFilename");
    const auto bytes =
        name ? platform::readFile(platform::Bundle::resourceFolder() / *name) : std::nullopt;
    const auto reading =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const Dictionary* root = reading.value ? reading.value->dictionary() : nullptr;
    return root ? std::optional(*root) : std::nullopt;
}

const Value* findInTable(std::string_view table, std::string_view key)
{
    const auto& settings = WebServicesSettings::settingsDictionary();
    const Dictionary* entries = settings ? findDictionary(*settings, table) : nullptr;
    return entries ? find(*entries, key) : nullptr;
}

std::optional<Dictionary> entryInTable(std::string_view table, std::string_view name)
{
    const Value* entry = findInTable(table, name);
    const Dictionary* fields = entry ? entry->dictionary() : nullptr;
    return fields ? std::optional(*fields) : std::nullopt;
}

} // namespace

const std::optional<Dictionary>& WebServicesSettings::settingsDictionary()
{
    static const std::optional<Dictionary> settings = loadSettings();
    return settings;
}

std::optional<Dictionary> WebServicesSettings::template_(std::string_view name)
{
    return entryInTable("Templates", name);
}

std::optional<Dictionary> WebServicesSettings::webMethodInfo(std::string_view name)
{
    return entryInTable("WebServices", name);
}

std::optional<Dictionary> WebServicesSettings::webRequestInfo(std::string_view name)
{
    return entryInTable("WebRequests", name);
}

std::optional<std::string> WebServicesSettings::reachabilityHost()
{
    return linkForKey("ReachabilityHost");
}

std::optional<std::string> WebServicesSettings::linkForKey(std::optional<std::string_view> key)
{
    if (!key)
        return std::nullopt;
    const Value* link = findInTable("URLS", *key);
    const std::string* text = link ? link->string() : nullptr;
    return text ? std::optional(*text) : std::nullopt;
}

} // namespace stowline
