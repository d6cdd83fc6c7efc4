#include "cli/shared/ScheduleUnits.h"

#include "stowline/backup/BackupRun.h"

#include <algorithm>

namespace stowline::cli {

namespace {

constexpr const char* kUnit = "stowline-backup";
constexpr const char* kUnitOfProfile = "stowline-backup-";

} // namespace

std::optional<platform::UserUnits> scheduleUnits(const std::string& profile)
{
    const bool isDefault = profile == backup::ChainIdentity().profile;
    const auto name = isDefault ? std::string(kUnit) : platform::unitName(kUnitOfProfile, profile);
    return name ? std::optional(platform::UserUnits(*name)) : std::nullopt;
}

std::vector<std::string> otherScheduledProfiles(const std::string& profile)
{
    std::vector<std::string> profiles = platform::instancesOfUnits(kUnitOfProfile);
    const std::string plain = backup::ChainIdentity().profile;
    if (const auto units = scheduleUnits(plain); units && units->areOurs())
        profiles.insert(profiles.begin(), plain);
    std::erase(profiles, profile);
    return profiles;
}

} // namespace stowline::cli
