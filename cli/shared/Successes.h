// When something last went well, for each backup that it says something of.
#pragma once

#include "stowline/platform/time/Date.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

/// Which backups of a profile are meant. Of what is empty, any.
struct BackupSubject {
    std::string account;
    std::string machine;            ///< its name on the service
    std::vector<std::string> paths; ///< in any order, however often
};

/// Notes in a file when something went well, in place of what was noted of the very same subject.
/// Of more than some hundred subjects the oldest are forgotten. What cannot be written is not
/// noted.
void noteSuccess(const std::filesystem::path& file, const BackupSubject& subject, Date moment);

/// The newest noted moment of the subjects that are meant; absent when there is none. One that an
/// earlier version noted counts for all subjects as long as none is noted since.
[[nodiscard]] std::optional<Date> successIn(const std::filesystem::path& file,
                                            const BackupSubject& subject);

} // namespace stowline::cli
