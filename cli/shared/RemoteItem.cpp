#include "cli/shared/RemoteItem.h"

#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/RemoteName.h"

#include <fmt/format.h>

#include <filesystem>

namespace stowline::cli {

namespace {

constexpr const char* kRow = "{:>8}  {:>8}  {:<24}  {}{}";

} // namespace

void showRemoteHeading()
{
    output().heading(fmt::format(kRow, "ID", "SIZE", "MODIFIED", "", "NAME"));
}

void showRemoteItem(const Dictionary& entry, bool withFolder)
{
    const bool isFolder = platform::findText(entry, "IsFolder") == "true";
    const std::string name = localPath(platform::findText(entry, "Name"));
    const std::string folder = localPath(platform::findText(entry, "Path"));
    const std::string path = folder + (folder.ends_with('/') ? "" : "/") + name;
    Fields fields;
    fields.emplace_back("path", path);
    fields.emplace_back("id", platform::leadingInteger(platform::findText(entry, "FileID")));
    fields.emplace_back("size", platform::leadingInteger(platform::findText(entry, "Size")));
    fields.emplace_back("modified", platform::findText(entry, "Modified"));
    fields.emplace_back("versions",
                        platform::leadingInteger(platform::findText(entry, "Versions")));
    fields.emplace_back("package", platform::findText(entry, "IsPackage") == "true");
    fields.emplace_back("system", platform::findText(entry, "SystemName"));
    const std::string shown = onOneLine(withFolder ? path : name + (isFolder ? "/" : ""));
    output().item(
        fmt::format(kRow, onOneLine(platform::findText(entry, "FileID")),
                    isFolder ? "" : onOneLine(sizeText(platform::findText(entry, "Size"))),
                    onOneLine(localTimeText(platform::findText(entry, "Modified"))),
                    withFolder ? onOneLine(platform::findText(entry, "SystemName")) + ":" : "",
                    shown),
        isFolder ? "folder" : "file", fields);
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
