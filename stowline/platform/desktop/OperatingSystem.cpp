#include "stowline/platform/desktop/OperatingSystem.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"

namespace stowline::platform {

std::string operatingSystemVersion(const std::filesystem::path& root)
{
    if (const auto bytes = readFile(root / "System/Library/CoreServices/SystemVersion.plist")) {
        const auto reading = readPropertyList(*bytes);
        const Dictionary* entries = reading.value ? reading.value->dictionary() : nullptr;
        if (const std::string* version = entries ? findString(*entries, "ProductVersion") : nullptr)
            return *version;
    }
    return assignedValue(readFile(root / "etc/os-release").value_or(""), "VERSION_ID").value_or("");
}

} // namespace stowline::platform
