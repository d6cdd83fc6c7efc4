#include "stowline/platform/OperatingSystem.h"

#include "stowline/platform/Files.h"
#include "stowline/platform/PropertyList.h"
#include "stowline/platform/Text.h"

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
