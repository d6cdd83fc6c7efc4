#include "stowline/platform/desktop/Bundle.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/values/PropertyList.h"

#include <cstdlib>

namespace stowline::platform {

namespace fs = std::filesystem;

namespace {

struct Overrides {
    std::optional<fs::path> folder;
    std::optional<fs::path> executable;
};

Overrides& overrides()
{
    static Overrides instance;
    return instance;
}

fs::path processExecutable()
{
    std::error_code fault;
    return fs::read_symlink("/proc/self/exe", fault);
}

Dictionary readDictionary(const fs::path& file)
{
    const auto bytes = readFile(file);
    if (!bytes)
        return {};
    auto reading = readPropertyList(*bytes);
    if (!reading.value || !reading.value->dictionary())
        return {};
    return *reading.value->dictionary();
}

std::string language()
{
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* set = std::getenv(variable);
        if (set && *set != '\0') {
            const std::string_view locale(set);
            return std::string(locale.substr(0, locale.find_first_of("_.@")));
        }
    }
    return "C";
}

/// The table of "de_DE", else of "de", else the common one.
Dictionary readStringTable()
{
    const fs::path resources = Bundle::resourceFolder();
    const std::string locale = language();
    for (const std::string& folder :
         {locale + ".lproj", locale.substr(0, locale.find('_')) + ".lproj", std::string(".")}) {
        Dictionary table = readDictionary(resources / folder / "Localizable.strings");
        if (!table.empty())
            return table;
    }
    return {};
}

} // namespace

void Bundle::useFolder(fs::path folder)
{
    overrides().folder = std::move(folder);
}

void Bundle::useExecutable(fs::path executable)
{
    overrides().executable = std::move(executable);
}

fs::path Bundle::executableFolder()
{
    static const fs::path folder = [] {
        std::error_code fault;
        const auto& set = overrides().executable;
        const fs::path executable = set ? fs::weakly_canonical(*set, fault) : processExecutable();
        return executable.parent_path();
    }();
    return folder;
}

fs::path Bundle::folder()
{
    if (overrides().folder)
        return *overrides().folder;
    const fs::path executables = executableFolder();
    const bool nested =
        executables.filename() == "MacOS" && executables.parent_path().filename() == "Contents";
    return nested ? executables.parent_path() : executables;
}

fs::path Bundle::resourceFolder()
{
    return folder() / "Resources";
}

const Dictionary& Bundle::infoDictionary()
{
    static const Dictionary dictionary = readDictionary(folder() / "Info.plist");
    return dictionary;
}

std::optional<std::string> Bundle::infoString(std::string_view key)
{
    const std::string* text = findString(infoDictionary(), key);
    return text ? std::optional(*text) : std::nullopt;
}

std::string Bundle::localizedString(std::string_view key)
{
    static const Dictionary table = readStringTable();
    const std::string* text = findString(table, key);
    return text ? *text : std::string(key);
}

} // namespace stowline::platform
