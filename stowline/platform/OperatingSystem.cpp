#include "stowline/platform/OperatingSystem.h"

#include "stowline/platform/Files.h"
#include "stowline/platform/PropertyList.h"

#include <glib.h>

#include <memory>
#include <sstream>

namespace stowline::platform {

namespace {

struct TextDeleter {
    void operator()(char* text) const { g_free(text); }
};

/// A value as a shell would read it: with or without quotes.
std::string unquoted(const std::string& value)
{
    const std::unique_ptr<char, TextDeleter> text(g_shell_unquote(value.c_str(), nullptr));
    return text ? text.get() : std::string();
}

std::string valueIn(const std::string& assignments, const std::string& name)
{
    std::istringstream lines(assignments);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name + "="))
            return unquoted(line.substr(name.size() + 1));
    }
    return {};
}

} // namespace

std::string operatingSystemVersion(const std::filesystem::path& root)
{
    if (const auto bytes = readFile(root / "System/Library/CoreServices/SystemVersion.plist")) {
        const auto reading = readPropertyList(*bytes);
        const Dictionary* entries = reading.value ? reading.value->dictionary() : nullptr;
        if (const std::string* version = entries ? findString(*entries, "ProductVersion") : nullptr)
            return *version;
    }
    return valueIn(readFile(root / "etc/os-release").value_or(""), "VERSION_ID");
}

} // namespace stowline::platform
