#include "stowline/platform/files/AccountNames.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

/// Calls one of getpwuid_r(), getpwnam_r(), getgrgid_r() and getgrnam_r() with as much room as it
/// wants: a group with thousands of members wants hundreds of kilobytes.
/// @return what the entry's field holds; absent when there is no entry
template <typename Value, typename Entry, typename Field, typename Ask>
std::optional<Value> fieldOf(Field Entry::*field, const Ask& ask)
{
    constexpr std::size_t usual = 4096;
    constexpr std::size_t most = std::size_t{16} << 20;
    Entry entry = {};
    std::string room(usual, '\0');
    for (;; room.resize(room.size() * 4)) {
        Entry* found = nullptr;
        if (ask(&entry, room.data(), room.size(), &found) == ERANGE && room.size() <= most)
            continue;
        return found == nullptr ? std::nullopt : std::optional<Value>(found->*field);
    }
}

} // namespace

std::uint32_t ownUserNumber()
{
    return ::geteuid();
}

std::optional<std::string> userName(std::uint32_t number)
{
    return fieldOf<std::string>(&passwd::pw_name,
                                [number](auto... place) { return ::getpwuid_r(number, place...); });
}

std::optional<std::string> groupName(std::uint32_t number)
{
    return fieldOf<std::string>(&group::gr_name,
                                [number](auto... place) { return ::getgrgid_r(number, place...); });
}

std::optional<std::uint32_t> userNumber(const std::string& name)
{
    return fieldOf<std::uint32_t>(
        &passwd::pw_uid, [&name](auto... place) { return ::getpwnam_r(name.c_str(), place...); });
}

std::optional<std::uint32_t> groupNumber(const std::string& name)
{
    return fieldOf<std::uint32_t>(
        &group::gr_gid, [&name](auto... place) { return ::getgrnam_r(name.c_str(), place...); });
}

const std::string& AccountNames::userName(std::uint32_t number)
{
    const auto [known, isNew] = users_.try_emplace(number);
    if (isNew)
        known->second = platform::userName(number).value_or("");
    return known->second;
}

const std::string& AccountNames::groupName(std::uint32_t number)
{
    const auto [known, isNew] = groups_.try_emplace(number);
    if (isNew)
        known->second = platform::groupName(number).value_or("");
    return known->second;
}

} // namespace stowline::platform
