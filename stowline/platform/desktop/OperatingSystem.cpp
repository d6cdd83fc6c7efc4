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
    // g_get_os_info() would not do: it reads the file of this system only, not below a root, and
    // machine-info(5), which has the same form, is read with the same lines of ours anyway.
    return assignedValue(readFile(root / "etc/os-release").value_or(""), "VERSION_ID").value_or("");
}

} // namespace stowline::platform
