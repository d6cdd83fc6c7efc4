// What is known of one log file.
#pragma once

#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Describes a file by its path. What is read from the file system is read once, when first asked
/// for, and kept until reset(). Not for several threads at once.
///
/// The archived mark is an extended attribute (see platform::setExtendedAttribute). Where the file
/// system keeps none, the mark is ".archived" before the extension of the file's name, and the
/// machine's log is told so once.
class DDLogFileInfo {
public:
    [[nodiscard]] static DDLogFileInfo logFileWithPath(std::string path)
    {
        return DDLogFileInfo(std::move(path));
    }
    explicit DDLogFileInfo(std::string filePath) : filePath_(std::move(filePath)) {}

    [[nodiscard]] const std::string& filePath() const { return filePath_; }
    [[nodiscard]] std::string fileName() const;

    /// "size", "created", "modified"; empty for a file that is not there.
    [[nodiscard]] Dictionary fileAttributes() const;
    /// Absent, or 0, for a file that is not there.
    [[nodiscard]] std::optional<Date> creationDate() const;
    [[nodiscard]] std::optional<Date> modificationDate() const;
    [[nodiscard]] std::uint64_t fileSize() const;
    /// Seconds since its creation; never negative.
    [[nodiscard]] double age() const;

    [[nodiscard]] bool isArchived() const;
    /// Sets or takes away the mark; the file's name may change.
    void setArchived(bool archived);

    /// Forgets what was read.
    void reset();

    /// Moves the file within its folder. A failure is told to the machine's log.
    void renameFile(const std::string& newFileName);

    /// Failures of the latter two are told to the machine's log.
    [[nodiscard]] bool hasExtendedAttributeWithName(const std::string& name) const;
    void addExtendedAttributeWithName(const std::string& name);
    void removeExtendedAttributeWithName(const std::string& name);

    /// The same path.
    [[nodiscard]] bool isEqual(const DDLogFileInfo& other) const
    {
        return filePath_ == other.filePath_;
    }

    /// Negative when this file comes first: the newest does, and one that is not there last.
    [[nodiscard]] int reverseCompareByCreationDate(const DDLogFileInfo& other) const;
    [[nodiscard]] int reverseCompareByModificationDate(const DDLogFileInfo& other) const;

    /// Everything above as the text of a dictionary.
    [[nodiscard]] std::string description() const;

private:
    [[nodiscard]] const std::optional<platform::FileStatus>& status() const;
    [[nodiscard]] bool hasMarkInName() const;

    std::string filePath_;
    mutable bool isStatusRead_ = false;
    mutable std::optional<platform::FileStatus> status_;
    mutable std::optional<double> age_;
    mutable std::optional<bool> isArchived_;
};

} // namespace stowline
#pragma GCC visibility pop
