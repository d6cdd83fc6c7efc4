#include "stowline/service/WebServicesSettings.h"

#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"
#include "stowline/service/Operation.h"
#include "stowline/service/SettingsTables.h"

namespace stowline {

namespace {

/// The file that useFile() named; empty when it was not called.
std::filesystem::path& chosenFile()
{
    static std::filesystem::path file;
    return file;
}

/// The place of the bundle's settings file; absent for a name that leads out of the resource
/// folder. A leading slash means nothing: the name is appended.
std::optional<std::filesystem::path> bundlesFile()
{
    const auto name = platform::Bundle::infoString("TW_WebServicesSettingsFilename");
    if (!name)
        return std::nullopt;
    const auto start = std::min(name->find_first_not_of('/'), name->size());
    const auto below = std::filesystem::path(name->substr(start)).lexically_normal();
    if (below.empty() || *below.begin() == "..")
        return std::nullopt;
    return platform::Bundle::resourceFolder() / below;
}

std::optional<std::filesystem::path> placeOfSettings()
{
    return chosenFile().empty() ? bundlesFile() : std::optional(chosenFile());
}

std::optional<Dictionary> loadSettings()
{
    const auto file = placeOfSettings();
    const auto bytes = file ? platform::readFile(*file) : std::nullopt;
    const auto reading =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const Dictionary* root = reading.value ? reading.value->dictionary() : nullptr;
    return root ? std::optional(*root) : std::nullopt;
}

const Value* findInTable(std::string_view table, std::string_view key)
{
    const auto& settings = settingsTables::all();
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

namespace settingsTables {

const std::optional<Dictionary>& all()
{
    static const std::optional<Dictionary> settings = loadSettings();
    return settings;
}

std::optional<Dictionary> templateEntry(std::string_view name)
{
    return entryInTable("Templates", name);
}

std::optional<Dictionary> webMethod(std::string_view name)
{
    return entryInTable("WebServices", name);
}

std::optional<Dictionary> webRequest(std::string_view name)
{
    return entryInTable("WebRequests", name);
}

std::optional<std::string> link(std::string_view key)
{
    const Value* found = findInTable("URLS", key);
    const std::string* text = found ? found->string() : nullptr;
    return text ? std::optional(*text) : std::nullopt;
}

std::optional<std::string> reachabilityHost()
{
    return link("ReachabilityHost");
}

} // namespace settingsTables

void WebServicesSettings::useFile(std::filesystem::path file)
{
    chosenFile() = std::move(file);
}

std::optional<std::filesystem::path> WebServicesSettings::file()
{
    return orEmpty(placeOfSettings);
}

const std::optional<Dictionary>& WebServicesSettings::settingsDictionary()
{
    static const std::optional<Dictionary> none;
    const auto* settings = orEmpty([] { return &settingsTables::all(); });
    return settings ? *settings : none;
}

std::optional<Dictionary> WebServicesSettings::template_(std::string_view name)
{
    return orEmpty([&] { return settingsTables::templateEntry(name); });
}

std::optional<Dictionary> WebServicesSettings::webMethodInfo(std::string_view name)
{
    return orEmpty([&] { return settingsTables::webMethod(name); });
}

std::optional<Dictionary> WebServicesSettings::webRequestInfo(std::string_view name)
{
    return orEmpty([&] { return settingsTables::webRequest(name); });
}

std::optional<std::string> WebServicesSettings::reachabilityHost()
{
    return orEmpty([] { return settingsTables::reachabilityHost(); });
}

std::optional<std::string> WebServicesSettings::linkForKey(std::optional<std::string_view> key)
{
    if (!key)
        return std::nullopt;
    return orEmpty([&] { return settingsTables::link(*key); });
}

} // namespace stowline
