#include "stowline/backup/proof/TestFolder.h"

#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <system_error>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;

/// Room for metadata, and for everybody else.
constexpr std::uint64_t kLeftFree = 64U << 20;

/// The folder's name, the same for each self-test of a profile: what a kill left is found by it.
std::string nameFor(const fs::path& profileFolder)
{
    return "stowline-self-test-" +
           platform::derivedUuid("com.stowline.self-test.1", profileFolder.string());
}

std::vector<fs::path> usualPlaces(const fs::path& profileFolder)
{
    std::vector<fs::path> places{profileFolder / nameFor(profileFolder)};
    std::error_code none;
    if (const fs::path temporary = fs::temp_directory_path(none); !none)
        places.push_back(temporary / nameFor(profileFolder));
    return places;
}

/// Items come back with the modes that they had, which may be such that nobody can look at them.
void loosenTree(const fs::path& folder)
{
    std::error_code unimportant; // what cannot be loosened shows when it is read or removed
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, unimportant);
    for (fs::directory_iterator entry(folder, unimportant), end; !unimportant && entry != end;
         entry.increment(unimportant)) {
        std::error_code unknown;
        const auto type = entry->symlink_status(unknown).type();
        if (type == fs::file_type::directory)
            loosenTree(entry->path());
        else if (type == fs::file_type::regular)
            fs::permissions(entry->path(), fs::perms::owner_read, fs::perm_options::add, unknown);
    }
}

void removeTree(const fs::path& folder) noexcept
{
    try {
        std::error_code fault;
        if (fs::symlink_status(folder, fault).type() == fs::file_type::directory)
            loosenTree(folder);
        fs::remove_all(folder, fault);
    } catch (const std::exception&) { // the next one tries again
    }
}

/// No room for anything where it is not known.
std::uint64_t roomAt(const fs::path& place)
{
    const auto free = platform::freeSpaceAt(place.parent_path());
    return free && *free > kLeftFree ? *free - kLeftFree : 0;
}

fs::path lockIn(const fs::path& profileFolder)
{
    return profileFolder / "self-test.lock";
}

} // namespace

TestFolder::TestFolder(platform::LockFile lock, std::vector<fs::path> places)
    : lock_(std::move(lock)), places_(std::move(places))
{
}

TestFolder::~TestFolder()
{
    clear();
}

std::optional<TestFolder> TestFolder::take(const fs::path& profileFolder,
                                           std::vector<fs::path> candidates, std::string& fault)
{
    int error = 0;
    auto lock = platform::LockFile::take(lockIn(profileFolder), error);
    if (!lock) {
        fault = error == 0 ? "Another self-test of this profile is running."
                           : "The lock " + lockIn(profileFolder).string() +
                                 " cannot be made: " + std::generic_category().message(error) + ".";
        return std::nullopt;
    }
    for (fs::path& candidate : candidates)
        candidate /= nameFor(profileFolder);
    TestFolder folder(std::move(*lock),
                      candidates.empty() ? usualPlaces(profileFolder) : std::move(candidates));
    for (const fs::path& place : folder.places_)
        removeTree(place);
    return folder;
}

void TestFolder::sweep(const fs::path& profileFolder) noexcept
{
    try {
        std::error_code none;
        if (!fs::exists(lockIn(profileFolder), none)) // there never was a self-test
            return;
        if (const auto lock = platform::LockFile::take(lockIn(profileFolder))) {
            for (const fs::path& place : usualPlaces(profileFolder))
                removeTree(place);
        }
    } catch (const std::exception&) { // the next one tries again
    }
}

std::uint64_t TestFolder::room() const
{
    std::uint64_t most = 0;
    for (const fs::path& place : places_)
        most = std::max(most, roomAt(place));
    return most;
}

fs::path TestFolder::make(std::uint64_t bytes, std::string& fault)
{
    clear();
    for (const fs::path& place : places_) {
        std::error_code refused;
        // One that is there already is somebody else's.
        if (roomAt(place) < bytes || !fs::create_directory(place, refused))
            continue;
        fs::permissions(place, fs::perms::owner_all, refused);
        made_ = place;
        if (!refused)
            return made_;
        clear();
    }
    fault = fmt::format("There is no room to restore into: {} bytes are needed in {}.", bytes,
                        places_.front().parent_path().string());
    return {};
}

void TestFolder::loosen()
{
    if (!made_.empty())
        loosenTree(made_);
}

void TestFolder::clear() noexcept
{
    if (!made_.empty())
        removeTree(made_);
    made_.clear();
}

} // namespace stowline::backup
