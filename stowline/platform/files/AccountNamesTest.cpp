// The user database of this machine, and one that a program in the middle answers for: a directory
// service whose group has so many members that its entry is larger than any usual room.
#include "stowline/platform/files/AccountNames.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <dlfcn.h>
#include <grp.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr gid_t kCrowd = 4'000'000'001U;
constexpr std::size_t kRoomOfCrowd = 500'000; // some 60,000 members

/// @return whether there was room
bool answerForCrowd(group* entry, char* room, std::size_t size, group** found)
{
    static constexpr std::string_view kName = "crowd";
    *found = nullptr;
    if (size < kRoomOfCrowd)
        return false;
    kName.copy(room, kName.size());
    room[kName.size()] = '\0';
    *entry = {.gr_name = room, .gr_passwd = nullptr, .gr_gid = kCrowd, .gr_mem = nullptr};
    *found = entry;
    return true;
}

template <typename Function> Function* theSystems(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name)); // NOLINT: as dlsym(3) shows it
}

} // namespace

// In the place of the C library's, for this program.
extern "C" int getgrnam_r(const char* name, group* entry, char* room, std::size_t size,
                          group** found)
{
    if (std::string_view(name) == "crowd")
        return answerForCrowd(entry, room, size, found) ? 0 : ERANGE;
    return theSystems<decltype(getgrnam_r)>("getgrnam_r")(name, entry, room, size, found);
}

extern "C" int getgrgid_r(gid_t number, group* entry, char* room, std::size_t size, group** found)
{
    if (number == kCrowd)
        return answerForCrowd(entry, room, size, found) ? 0 : ERANGE;
    return theSystems<decltype(getgrgid_r)>("getgrgid_r")(number, entry, room, size, found);
}

namespace stowline::platform {
namespace {

TEST(AccountNames, AreThoseOfTheUserDatabase)
{
    AccountNames names;
    EXPECT_EQ(names.userName(0), "root");
    EXPECT_EQ(names.groupName(0), "root");
    EXPECT_EQ(names.userName(4'000'000'000U), "");
    EXPECT_EQ(names.groupName(4'000'000'000U), "");
    EXPECT_EQ(userNumber("root"), 0U);
    EXPECT_EQ(groupNumber("root"), 0U);
    EXPECT_EQ(userNumber("nobody of this name"), std::nullopt);
    EXPECT_EQ(groupNumber("nobody of this name"), std::nullopt);
    EXPECT_EQ(ownUserNumber(), ::geteuid());
}

TEST(AccountNames, KnowAGroupOfManyMembers)
{
    AccountNames names;
    EXPECT_EQ(names.groupName(kCrowd), "crowd");
    EXPECT_EQ(groupName(kCrowd), "crowd");
    EXPECT_EQ(groupNumber("crowd"), kCrowd);
}

} // namespace
} // namespace stowline::platform
