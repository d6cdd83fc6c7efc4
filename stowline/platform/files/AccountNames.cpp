#include "stowline/platform/files/AccountNames.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>

namespace stowline::platform {

namespace {

/// Calls getpwuid_r() or getgrgid_r() with as much room as it wants. @return null: no entry
template <typename Entry, typename Ask>
const Entry* entryOf(Entry& entry, std::string& room, const Ask& ask)
{
    constexpr std::size_t usual = 4096;
    constexpr std::size_t most = std::size_t{16} << 20;
    for (room.resize(usual);; room.resize(room.size() * 4)) {
        Entry* found = nullptr;
        if (ask(&entry, room.data(), room.size(), &found) != ERANGE || room.size() > most)
            return found;
    }
}

} // namespace

const std::string& AccountNames::userName(std::uint32_t number)
{
    const auto [known, isNew] = users_.try_emplace(number);
    if (isNew) {
        struct passwd entry = {};
        std::string room;
        if (const auto* found = entryOf(
                entry, room, [number](auto... place) { return ::getpwuid_r(number, place...); }))
            known->second = found->pw_name;
    }
    return known->second;
}

const std::string& AccountNames::groupName(std::uint32_t number)
{
    const auto [known, isNew] = groups_.try_emplace(number);
    if (isNew) {
        struct group entry = {};
        std::string room;
        if (const auto* found = entryOf(
                entry, room, [number](auto... place) { return ::getgrgid_r(number, place...); }))
            known->second = found->gr_name;
    }
    return known->second;
}

} // namespace stowline::platform
