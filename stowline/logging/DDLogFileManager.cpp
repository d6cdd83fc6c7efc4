#include "stowline/logging/DDLogFileManager.h"

#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/AppendFile.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/StandardFolders.h"

#include <algorithm>
#include <filesystem>
#include <mutex>

namespace stowline {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = "log-";
constexpr std::size_t kDigits = 6;

/// Order of the list: negative when the left one comes first.
int compare(const DDLogFileInfo& left, const DDLogFileInfo& right)
{
    if (const int byCreation = left.reverseCompareByCreationDate(right); byCreation != 0)
        return byCreation;
    if (left.isArchived() != right.isArchived())
        return left.isArchived() ? 1 : -1;
    if (const int byChange = left.reverseCompareByModificationDate(right); byChange != 0)
        return byChange;
    return left.filePath().compare(right.filePath());
}

} // namespace

DDLogFileManagerDefault::DDLogFileManagerDefault(std::string logsDirectory)
    : logsDirectory_(std::move(logsDirectory))
{
}

std::string DDLogFileManagerDefault::logsDirectory() const
{
    if (!platform::makePrivateFolder(logsDirectory_))
        platform::consoleLog(platform::formatText(
            "DDFileLogManagerDefault: Error creating logsDirectory: %@", logsDirectory_));
    return logsDirectory_;
}

std::string DDLogFileManagerDefault::defaultLogsDirectory()
{
    std::error_code none;
    const auto library = platform::userFolder(platform::StandardFolder::library);
    const fs::path base = library ? fs::path(*library) : fs::temp_directory_path(none);
    return (base / "Logs" / platform::processName()).string();
}

std::size_t DDLogFileManagerDefault::maximumNumberOfLogFiles() const
{
    const std::lock_guard lock(mutex_);
    return maximumNumberOfLogFiles_;
}

void DDLogFileManagerDefault::setMaximumNumberOfLogFiles(std::size_t number)
{
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(maximumNumberOfLogFiles_, number) == number)
            return;
    }
    DDLog::loggingQueue().async([manager = weak_from_this()] {
        if (const auto alive = manager.lock())
            alive->deleteOldLogFiles();
    });
}

bool DDLogFileManagerDefault::isLogFile(std::string_view fileName)
{
    return fileName.starts_with(kPrefix) && fileName.size() >= kPrefix.size() + kDigits &&
           fileName.substr(kPrefix.size(), kDigits).find_first_not_of("0123456789ABCDEF") ==
               std::string_view::npos;
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFilePaths() const
{
    std::vector<std::string> paths;
    const fs::path folder = logsDirectory();
    for (const std::string& name : platform::namesInFolder(folder)) {
        std::error_code none;
        const fs::path path = folder / name;
        if (isLogFile(name) && fs::is_regular_file(fs::symlink_status(path, none)))
            paths.push_back(path.string());
    }
    return paths;
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFileNames() const
{
    std::vector<std::string> names;
    for (const DDLogFileInfo& info : unsortedLogFileInfos())
        names.push_back(info.fileName());
    return names;
}

std::vector<DDLogFileInfo> DDLogFileManagerDefault::unsortedLogFileInfos() const
{
    std::vector<DDLogFileInfo> infos;
    for (std::string& path : unsortedLogFilePaths())
        infos.emplace_back(std::move(path));
    return infos;
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFilePaths()
{
    std::vector<std::string> paths;
    for (const DDLogFileInfo& info : sortedLogFileInfos())
        paths.push_back(info.filePath());
    return paths;
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFileNames()
{
    std::vector<std::string> names;
    for (const DDLogFileInfo& info : sortedLogFileInfos())
        names.push_back(info.fileName());
    return names;
}

std::vector<DDLogFileInfo> DDLogFileManagerDefault::sortedLogFileInfos()
{
    auto infos = unsortedLogFileInfos();
    std::sort(infos.begin(), infos.end(),
              [](const DDLogFileInfo& left, const DDLogFileInfo& right) {
                  return compare(left, right) < 0;
              });
    return infos;
}

std::string DDLogFileManagerDefault::generateShortUUID()
{
    return platform::randomUuid().value_or("000000").substr(0, kDigits);
}

std::optional<std::string> DDLogFileManagerDefault::createNewLogFile()
{
    const fs::path folder = logsDirectory();
    for (;;) {
        const std::string path = folder / platform::formatText("log-%@.txt", generateShortUUID());
        if (platform::AppendFile::create(path)) {
            deleteOldLogFilesBut(path);
            return path;
        }
        std::error_code none;
        if (!fs::exists(fs::symlink_status(path, none)))
            return std::nullopt;
    }
}

void DDLogFileManagerDefault::deleteOldLogFiles()
{
    deleteOldLogFilesBut("");
}

void DDLogFileManagerDefault::deleteOldLogFilesBut(const std::string& current)
{
    auto infos = sortedLogFileInfos();
    std::erase_if(infos, [&](const DDLogFileInfo& info) { return info.filePath() == current; });
    if (current.empty() && !infos.empty() && !infos.front().isArchived())
        infos.erase(infos.begin());
    for (std::size_t i = maximumNumberOfLogFiles(); i < infos.size(); ++i)
        platform::AppendFile::removeUnlessInUse(infos[i].filePath());
}

} // namespace stowline
