#include "cli/shared/ScheduleUnits.h"

#include "stowline/backup/BackupRun.h"

namespace stowline::cli {

std::optional<platform::UserUnits> scheduleUnits(const std::string& profile)
{
    const bool isDefault = profile == backup::ChainIdentity().profile;
    const auto name = isDefault ? std::string("stowline-backup")
                                : platform::unitName("stowline-backup-", profile);
    return name ? std::optional(platform::UserUnits(*name)) : std::nullopt;
}

} // namespace stowline::cli
