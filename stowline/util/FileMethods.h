// The application's own folders.
#pragma once

#include "stowline/platform/files/FileManager.h"

#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {
using platform::FileManager;
using platform::StandardFolder;
} // namespace stowline

/// Free functions on a file manager; any thread. The error slot may be null.
namespace stowline::FileMethods {

/// A standard folder, or one in it, made with all that is missing above it.
/// @param directory the kind of folder; @param inDomain whose (platform::StandardDomain)
/// @param appendPathComponent absent for the standard folder itself
/// @param error cleared first. Without a folder of that kind: code 150 in the branded error domain
///              (AccountProvider::getRebrandedErrorDomain); where it cannot be made: the file
///              manager's own error.
/// @return its path; absent with an error.
[[nodiscard]] std::optional<std::string>
TW_findOrCreateDirectory(const FileManager& manager, StandardFolder directory, unsigned inDomain,
                         const std::optional<std::string>& appendPathComponent,
                         platform::ErrorSlot error);

/// The folder for the application's own data: in the user's application-support folder, named after
/// the executable ("CFBundleExecutable" of the information dictionary; without it the
/// application-support folder itself). Made when missing, and logged on every call.
/// @param error filled when absent is returned, else left alone
[[nodiscard]] std::optional<std::string> TW_appSupportDirectory(const FileManager& manager,
                                                                platform::ErrorSlot error);

/// A folder in that folder, made when missing.
/// @param error filled when absent is returned, else left alone
[[nodiscard]] std::optional<std::string>
TW_appSupportDirectoryWithSubDirectory(const FileManager& manager, const std::string& subDirectory,
                                       platform::ErrorSlot error);

} // namespace stowline::FileMethods
#pragma GCC visibility pop
