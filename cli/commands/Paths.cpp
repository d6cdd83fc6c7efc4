// stowline paths
#include "cli/commands/Commands.h"
#include "cli/shared/Output.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <array>
#include <filesystem>

namespace stowline::cli {

namespace {

constexpr std::array<const char*, 10> kNames{
    "home directory", "trash",  "documents", "library",  "desktop",
    "downloads",      "movies", "music",     "pictures", "sharedpublic"};

ExitStatus listFolders()
{
    for (const std::string name : kNames) {
        const std::string path = General::pathRepresentedByDirectoryString(name);
        Fields fields{{"name", name}};
        fields.emplace_back("path", path);
        output().item(fmt::format("{:<14}  {}", name, onOneLine(path)), "folder", fields);
    }
    return output().finish(ExitStatus::done);
}

/// What the flags say, in words.
std::string wordsFor(const std::string& path)
{
    std::string words;
    const auto add = [&](bool isSo, const char* word) {
        if (isSo)
            words += (words.empty() ? "" : ", ") + std::string(word);
    };
    add(General::isItemPlainFile(path), "file");
    add(General::isPathPackage(path), "package");
    add(General::isItemInPackage(path) && !General::isPathPackage(path), "in a package");
    add(General::isItemHidden(path), "hidden");
    add(General::isSystemVolumePath(path), "on the system volume");
    return words;
}

void describe(const std::string& path)
{
    const std::string words = wordsFor(path);
    const auto name = General::volumeNameFromPath(path);
    const auto mount = General::volumePathFromItemPath(path);
    Fields fields;
    fields.emplace_back("path", path);
    fields.emplace_back("volume", name.value_or(""));
    fields.emplace_back("mount", mount.value_or(""));
    fields.emplace_back("volume_number", General::volumeRefNumFromPath(path));
    fields.emplace_back("plain_file", General::isItemPlainFile(path));
    fields.emplace_back("package", General::isPathPackage(path));
    fields.emplace_back("in_package", General::isItemInPackage(path));
    fields.emplace_back("hidden", General::isItemHidden(path));
    fields.emplace_back("system_volume", General::isSystemVolumePath(path));
    output().item(fmt::format("{}\n  volume  {} at {}\n  is      {}", onOneLine(path),
                              onOneLine(name.value_or("unknown")),
                              onOneLine(mount.value_or("unknown")), words.empty() ? "-" : words),
                  "item", fields);
}

ExitStatus describeAll(const std::vector<std::string>& names)
{
    std::size_t missing = 0;
    for (const std::string& name : names) {
        const std::string path = General::pathRepresentedByDirectoryString(name);
        std::error_code unknown;
        if (std::filesystem::exists(std::filesystem::symlink_status(path, unknown))) {
            describe(path);
            continue;
        }
        ++missing;
        output().complain(path + " was not found.");
    }
    if (missing == 0)
        return output().finish(ExitStatus::done);
    return output().finish(missing == names.size() ? ExitStatus::notFound
                                                   : ExitStatus::someItemsFailed,
                           {{"missing", missing}});
}

} // namespace

void declarePaths(const Command& app)
{
    auto names = std::make_shared<std::vector<std::string>>();
    const Command command = app.addCommand(
        "paths", "Show what the folder names of a selection resolve to, or look at items");
    command.addOption("NAME", *names, "Folder names or paths to look at");
    command.runs([names] { return names->empty() ? listFolders() : describeAll(*names); });
}

} // namespace stowline::cli
