#include "stowline/logging/DDLogFileInfo.h"

#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/values/Format.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <mutex>

namespace stowline {

namespace {

namespace fs = std::filesystem;
using platform::consoleLog;
using platform::formatText;

constexpr const char* kArchivedAttribute = "Stowline.log.archived";
constexpr std::string_view kMarkInName = ".archived";

void warnOnce()
{
    static std::once_flag told;
    std::call_once(told, [] {
        consoleLog("The file system of the log files keeps no extended attributes. Finished files "
                   "are named \"….archived.txt\" instead.");
    });
}

int reverseCompare(const std::optional<Date>& left, const std::optional<Date>& right)
{
    if (left == right)
        return 0;
    return left > right ? -1 : 1;
}

} // namespace

std::string DDLogFileInfo::fileName() const
{
    return fs::path(filePath_).filename().string();
}

const std::optional<platform::FileStatus>& DDLogFileInfo::status() const
{
    if (!std::exchange(isStatusRead_, true))
        status_ = platform::fileStatus(filePath_);
    return status_;
}

Dictionary DDLogFileInfo::fileAttributes() const
{
    if (!status())
        return {};
    return {
        {"size", status_->size}, {"created", status_->created}, {"modified", status_->modified}};
}

std::optional<Date> DDLogFileInfo::creationDate() const
{
    return status() ? std::optional(status_->created) : std::nullopt;
}

std::optional<Date> DDLogFileInfo::modificationDate() const
{
    return status() ? std::optional(status_->modified) : std::nullopt;
}

std::uint64_t DDLogFileInfo::fileSize() const
{
    return status() ? status_->size : 0;
}

double DDLogFileInfo::age() const
{
    if (!age_) {
        const Date now = platform::currentDate();
        const auto since = now - creationDate().value_or(now);
        age_ = std::max(0.0, std::chrono::duration<double>(since).count());
    }
    return *age_;
}

bool DDLogFileInfo::hasMarkInName() const
{
    return fs::path(fileName()).stem().string().ends_with(kMarkInName);
}

bool DDLogFileInfo::isArchived() const
{
    if (!isArchived_)
        isArchived_ = hasMarkInName() || hasExtendedAttributeWithName(kArchivedAttribute);
    return *isArchived_;
}

void DDLogFileInfo::setArchived(bool archived)
{
    isArchived_.reset();
    const fs::path name = fileName();
    if (!archived) {
        if (hasMarkInName()) {
            const std::string stem = name.stem().string();
            renameFile(stem.substr(0, stem.size() - kMarkInName.size()) +
                       name.extension().string());
        }
        if (hasExtendedAttributeWithName(kArchivedAttribute))
            removeExtendedAttributeWithName(kArchivedAttribute);
        return;
    }
    if (isArchived())
        return;
    isArchived_.reset();
    const int fault = platform::setExtendedAttribute(filePath_, kArchivedAttribute);
    if (fault == 0)
        return;
    if (fault == ENOTSUP || fault == ENOSPC || fault == EPERM) {
        warnOnce();
        renameFile(name.stem().string() + std::string(kMarkInName) + name.extension().string());
    } else {
        consoleLog(formatText("DDLogFileInfo: setxattr(%@, %@): error = %i", kArchivedAttribute,
                              filePath_, fault));
    }
}

void DDLogFileInfo::reset()
{
    isStatusRead_ = false;
    status_.reset();
    age_.reset();
    isArchived_.reset();
}

void DDLogFileInfo::renameFile(const std::string& newFileName)
{
    if (newFileName == fileName())
        return;
    const fs::path newPath = fs::path(filePath_).parent_path() / newFileName;
    std::error_code fault;
    if (fs::exists(fs::symlink_status(newPath, fault)))
        fault = std::make_error_code(std::errc::file_exists);
    else
        fs::rename(filePath_, newPath, fault);
    if (fault)
        consoleLog(
            formatText("DDLogFileInfo: Error renaming file (%@): %@", fileName(), fault.message()));
    else
        filePath_ = newPath.string();
    reset();
}

bool DDLogFileInfo::hasExtendedAttributeWithName(const std::string& name) const
{
    return platform::findExtendedAttribute(filePath_, name) == 0;
}

void DDLogFileInfo::addExtendedAttributeWithName(const std::string& name)
{
    const int fault = platform::setExtendedAttribute(filePath_, name);
    isArchived_.reset();
    if (fault != 0)
        consoleLog(
            formatText("DDLogFileInfo: setxattr(%@, %@): error = %i", name, filePath_, fault));
}

void DDLogFileInfo::removeExtendedAttributeWithName(const std::string& name)
{
    const int fault = platform::removeExtendedAttribute(filePath_, name);
    isArchived_.reset();
    if (fault != 0)
        consoleLog(
            formatText("DDLogFileInfo: removexattr(%@, %@): error = %i", name, filePath_, fault));
}

int DDLogFileInfo::reverseCompareByCreationDate(const DDLogFileInfo& other) const
{
    return reverseCompare(creationDate(), other.creationDate());
}

int DDLogFileInfo::reverseCompareByModificationDate(const DDLogFileInfo& other) const
{
    return reverseCompare(modificationDate(), other.modificationDate());
}

std::string DDLogFileInfo::description() const
{
    const auto text = [](const std::optional<Date>& date) {
        return date ? Value(*date) : Value("(null)");
    };
    return Value(Dictionary{{"filePath", filePath_},
                            {"fileName", fileName()},
                            {"fileAttributes", fileAttributes()},
                            {"creationDate", text(creationDate())},
                            {"modificationDate", text(modificationDate())},
                            {"fileSize", fileSize()},
                            {"age", age()},
                            {"isArchived", isArchived()}})
        .text();
}

} // namespace stowline
