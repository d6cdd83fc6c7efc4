#include "stowline/util/FileMethods.h"

#include "stowline/branding/AccountProvider.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/text/PathText.h"

namespace stowline::FileMethods {

namespace {

constexpr int kNoSuchFolder = 150;

void store(platform::ErrorSlot slot, const std::optional<Error>& error)
{
    if (slot)
        *slot = error;
}

} // namespace

std::optional<std::string>
TW_findOrCreateDirectory(const FileManager& manager, StandardFolder directory, unsigned inDomain,
                         const std::optional<std::string>& appendPathComponent,
                         platform::ErrorSlot error)
{
    store(error, std::nullopt);
    auto path = manager.folder(directory, inDomain);
    if (!path) {
        const std::string format = platform::Bundle::localizedString(
            "Path %@ not found for domain %@. Cannot proceed to create specified directory.");
        store(error, platform::makeError(
                         AccountProvider::getRebrandedErrorDomain(), kNoSuchFolder,
                         platform::formatText(format, static_cast<unsigned>(directory), inDomain)));
        return std::nullopt;
    }
    if (appendPathComponent)
        path = platform::appendingPathComponent(*path, *appendPathComponent);
    return manager.createDirectoryAtPath(*path, error) ? path : std::nullopt;
}

std::optional<std::string> TW_appSupportDirectory(const FileManager& manager,
                                                  platform::ErrorSlot error)
{
    std::optional<Error> fault;
    auto path =
        TW_findOrCreateDirectory(manager, StandardFolder::applicationSupport, platform::kUserDomain,
                                 platform::Bundle::infoString("CFBundleExecutable"), &fault);
    if (!path) {
        STOWLINE_LOG_ERROR_OF("General",
                              "\nGeneral.TW_appSupportDirectory. Unable to find or create "
                              "application support directory:\n%@",
                              fault);
        store(error, fault);
        return std::nullopt;
    }
    STOWLINE_LOG_INFO_OF("General", "\nGeneral.TW_appSupportDirectory. Created: %@", *path);
    return path;
}

std::optional<std::string> TW_appSupportDirectoryWithSubDirectory(const FileManager& manager,
                                                                  const std::string& subDirectory,
                                                                  platform::ErrorSlot error)
{
    const auto support = TW_appSupportDirectory(manager, error);
    if (!support)
        return std::nullopt;
    const std::string path = platform::appendingPathComponent(*support, subDirectory);
    STOWLINE_LOG_INFO_OF(
        "General", "\nGeneral.TW_appSupportDirectoryWithSubDirectory. Creating subdir at path: %@",
        path);
    std::optional<Error> fault;
    if (manager.createDirectoryAtPath(path, &fault))
        return path;
    STOWLINE_LOG_ERROR_OF("General",
                          "\nGeneral.TW_appSupportDirectoryWithSubDirectory. Unable to find or "
                          "create application support subdirectory \"%@\": %@",
                          subDirectory, fault);
    store(error, fault);
    return std::nullopt;
}

} // namespace stowline::FileMethods
