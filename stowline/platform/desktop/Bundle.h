// The folder a program comes in: its executable, information dictionary and resources.
#pragma once

#include "stowline/platform/values/Value.h"

#include <filesystem>
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// The main bundle of this process.
///
/// It is the folder of the executable, links resolved: "Info.plist" and "Resources/" beside the
/// executable, or, when that folder is "Contents/MacOS", in "Contents/". A host whose files lie
/// elsewhere says so before the first use. What was read once is kept; afterwards every operation
/// is safe from any thread.
class Bundle {
public:
    Bundle() = delete;

    /// Takes "Info.plist" and "Resources/" from this folder instead. Before first use only.
    static void useFolder(std::filesystem::path folder);

    /// Takes this as the program's executable, beside which helpers are looked for, instead of the
    /// process's own (for hosts that are loaded into another program). Before first use only.
    static void useExecutable(std::filesystem::path executable);

    /// The folder that holds the executable and its helper programs.
    [[nodiscard]] static std::filesystem::path executableFolder();

    /// The folder that holds "Info.plist".
    [[nodiscard]] static std::filesystem::path folder();
    [[nodiscard]] static std::filesystem::path resourceFolder();

    /// The information dictionary, read on first use; empty when there is no readable "Info.plist".
    [[nodiscard]] static const Dictionary& infoDictionary();

    /// A string of the information dictionary; absent when the key is missing or no string.
    [[nodiscard]] static std::optional<std::string> infoString(std::string_view key);

    /// The text that the default string table ("Localizable.strings", a property list in
    /// "Resources/<language>.lproj/" for the language of LC_ALL, LC_MESSAGES or LANG, else in
    /// "Resources/") has for a key; the key itself when it has none.
    [[nodiscard]] static std::string localizedString(std::string_view key);
};

} // namespace stowline::platform
#pragma GCC visibility pop
