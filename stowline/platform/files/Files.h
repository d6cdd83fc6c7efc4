// Whole files: read, and written so that a reader never meets half of one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Content of a file; absent when it cannot be opened or read, or is a directory.
[[nodiscard]] std::optional<std::string> readFile(const std::filesystem::path& path);

/// The same of a regular file alone, or a link to one: a pipe or a device in its place is not
/// waited for.
[[nodiscard]] std::optional<std::string> readRegularFile(const std::filesystem::path& path);

/// Writes a file beside its place, makes it durable and renames it into place. Mode 0600.
/// @return false when any step fails; the old file then stands unchanged.
[[nodiscard]] bool writeFileAtomically(const std::filesystem::path& path, std::string_view content);

/// The same, but not made durable: after a crash of the machine the file may hold the old content,
/// the new one, or nothing. For what is written often and can be done without.
/// @param error the system's number when it cannot be written
[[nodiscard]] bool replaceFile(const std::filesystem::path& path, std::string_view content,
                               int& error);
[[nodiscard]] bool replaceFile(const std::filesystem::path& path, std::string_view content);

/// The names in a folder, but "." and "..", in no order; none when it cannot be read. Unlike the
/// standard library's iterators, which end the process, it throws std::bad_alloc without memory.
[[nodiscard]] std::vector<std::string> namesInFolder(const std::filesystem::path& folder);
/// @param error the system's number when it cannot be read, to its end; else 0
[[nodiscard]] std::vector<std::string> namesInFolder(const std::filesystem::path& folder,
                                                     int& error);

/// Makes a folder and what is missing above it, mode 0700 for what it makes.
/// @param error the system's number when it cannot be made
[[nodiscard]] bool makePrivateFolder(const std::filesystem::path& folder, int& error);
[[nodiscard]] bool makePrivateFolder(const std::filesystem::path& folder);

/// The folders of the desktop's base-directory convention: an absolute path in the variable
/// (XDG_CONFIG_HOME, XDG_STATE_HOME), else the default below the home folder; with
/// "stowline" appended. Absent when there is no home either.
[[nodiscard]] std::optional<std::filesystem::path> configurationFolder();
[[nodiscard]] std::optional<std::filesystem::path> stateFolder();

} // namespace stowline::platform
#pragma GCC visibility pop
