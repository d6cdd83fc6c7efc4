#include "cli/RemoteItem.h"

#include "cli/Output.h"
#include "cli/RemoteName.h"
#include "stowline/platform/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace stowline::cli {

void showRemoteItem(const Dictionary& entry, bool withFolder)
{
    const bool isFolder = platform::findText(entry, "IsFolder") == "true";
    const std::string name = localPath(platform::findText(entry, "Name"));
    const std::string folder = localPath(platform::findText(entry, "Path"));
    const std::string path = folder + (folder.ends_with('/') ? "" : "/") + name;
    nlohmann::ordered_json line{{"v", 1}, {"type", isFolder ? "folder" : "file"}};
    addPath(line, path);
    line["id"] = platform::leadingInteger(platform::findText(entry, "FileID"));
    line["size"] = platform::leadingInteger(platform::findText(entry, "Size"));
    line["modified"] = platform::findText(entry, "Modified");
    line["versions"] = platform::leadingInteger(platform::findText(entry, "Versions"));
    line["package"] = platform::findText(entry, "IsPackage") == "true";
    line["system"] = platform::findText(entry, "SystemName");
    const std::string shown =
        platform::withoutControls(withFolder ? path : name + (isFolder ? "/" : ""));
    output().item(fmt::format("{:>8}  {:>14}  {:19}  {}{}", platform::findText(entry, "FileID"),
                              isFolder ? "" : platform::findText(entry, "Size"),
                              platform::findText(entry, "Modified"),
                              withFolder ? platform::findText(entry, "SystemName") + ":" : "",
                              shown),
                  line);
}

std::string remotePathFor(const std::string& given)
{
    std::error_code unknown;
    std::string path = std::filesystem::absolute(given, unknown).lexically_normal().string();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return remotePath(path);
}

} // namespace stowline::cli
