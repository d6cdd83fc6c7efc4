#include "stowline/backup/proof/TestFolder.h"

#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/AccountNames.h"
#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;
using platform::TargetFolder;
using platform::TargetKind;
using platform::TargetStatus;

constexpr std::uint64_t kMebibyte = 1U << 20;
constexpr std::uint64_t kLeastLeftFree = 64 * kMebibyte;
constexpr std::uint64_t kUsuallyLeftFree = 1024 * kMebibyte;
constexpr std::uint32_t kAllOfOwner = 0700;
constexpr std::uint32_t kOwnerReads = 0400;
constexpr std::uint32_t kOfOthers = 0077;
constexpr std::uint32_t kOthersWrite = 0022;
constexpr std::uint32_t kSticky = 01000;
constexpr std::string_view kTestFolder = "stowline-self-test-"; ///< and a UUID

fs::path lockIn(const fs::path& profileFolder)
{
    return profileFolder / "self-test.lock";
}

/// The paths of folders, each with a NUL byte behind it: those that may have been left.
fs::path noteIn(const fs::path& profileFolder)
{
    return profileFolder / "self-test.folders";
}

[[nodiscard]] bool writeNote(const fs::path& profileFolder, const std::vector<fs::path>& folders)
{
    std::string text;
    for (const fs::path& folder : folders)
        text += folder.string() + '\0';
    if (!text.empty())
        return platform::writeFileAtomically(noteIn(profileFolder), text);
    std::error_code fault;
    fs::remove(noteIn(profileFolder), fault);
    return !fault;
}

std::string below(const std::string& folder, const std::string& name)
{
    return folder.empty() ? name : folder + "/" + name;
}

/// Items come back with the modes that they had, which may be such that nobody can look at them.
/// @return all folders, each behind the one that it is in
std::vector<std::string> loosenBelow(const TargetFolder& top)
{
    std::vector<std::string> folders{""};
    for (std::size_t at = 0; at < folders.size(); ++at) {
        int error = 0; // what cannot be loosened shows when it is read or removed
        const auto folder = top.below(folders[at], error);
        const auto names = folder ? folder->names(error) : std::nullopt;
        for (const std::string& name : names.value_or(std::vector<std::string>())) {
            const auto status = folder->find(name, error);
            const bool isFolder = status && status->kind == TargetKind::folder;
            if (!isFolder && (!status || status->kind != TargetKind::file))
                continue;
            const std::uint32_t wanted = isFolder ? kAllOfOwner : kOwnerReads;
            if ((status->mode & wanted) != wanted)
                (void)folder->setMode(name, status->mode | wanted);
            if (isFolder)
                folders.push_back(below(folders[at], name));
        }
    }
    return folders;
}

void emptyFolder(const TargetFolder& top)
{
    const std::vector<std::string> folders = loosenBelow(top);
    for (std::size_t at = folders.size(); at-- > 0;) {
        int error = 0;
        const auto folder = top.below(folders[at], error);
        const auto names = folder ? folder->names(error) : std::nullopt;
        for (const std::string& name : names.value_or(std::vector<std::string>())) {
            if (folder->remove(name) != 0)
                (void)folder->removeFolder(name); // it is empty by now
        }
    }
}

bool isOwn(const TargetStatus& status)
{
    return status.kind == TargetKind::folder && status.owner == platform::ownUserNumber() &&
           (status.mode & kOfOthers) == 0;
}

/// A folder that nobody but this user can have made, opened.
std::optional<TargetFolder> openOwn(const TargetFolder& parent, const std::string& name)
{
    int error = 0;
    auto folder = parent.below(name, error);
    const auto status = folder ? folder->status() : std::nullopt;
    return status && isOwn(*status) ? std::move(folder) : std::nullopt;
}

/// Whether a path may be that of a folder that a self-test made, whatever a note says.
bool isOfOurForm(const fs::path& path)
{
    const std::string name = path.filename().string();
    return path.is_absolute() && name.starts_with(kTestFolder) &&
           platform::isUuid(std::string_view(name).substr(kTestFolder.size()));
}

/// @return whether nothing of ours is under that path any more
bool removeOwn(const fs::path& path)
{
    int error = 0;
    const std::string name = path.filename().string();
    const auto parent = TargetFolder::open(path.parent_path(), false, error);
    if (!parent)
        return false; // it may come again
    const auto status = parent->find(name, error);
    if (!status || !isOwn(*status))
        return status || error == ENOENT;
    if (const auto folder = openOwn(*parent, name))
        emptyFolder(*folder);
    return parent->removeFolder(name) == 0;
}

/// Takes out what is noted, and notes what stays.
void removeNoted(const fs::path& profileFolder) noexcept
{
    try {
        std::vector<fs::path> left = TestFolder::noted(profileFolder);
        if (left.empty())
            return;
        std::erase_if(left, removeOwn);
        (void)writeNote(profileFolder, left);
    } catch (const std::exception&) { // the next one tries again
    }
}

/// No room for anything where it is not known.
std::uint64_t roomAt(const fs::path& place)
{
    const std::uint64_t free = platform::freeSpaceAt(place).value_or(0);
    constexpr std::uint64_t tenth = 10;
    const std::uint64_t left =
        std::max({kLeastLeftFree, free / tenth, std::min(kUsuallyLeftFree, free / 2)});
    return free > left ? free - left : 0;
}

} // namespace

TestFolder::TestFolder(platform::LockFile lock, fs::path profileFolder,
                       std::vector<fs::path> places)
    : lock_(std::move(lock)), profileFolder_(std::move(profileFolder)), places_(std::move(places))
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
                                 " cannot be made: " + platform::systemErrorText(error) + ".";
        return std::nullopt;
    }
    if (candidates.empty()) {
        candidates.push_back(profileFolder);
        std::error_code none;
        if (const fs::path temporary = fs::temp_directory_path(none); !none)
            candidates.push_back(temporary);
    }
    removeNoted(profileFolder);
    return TestFolder(std::move(*lock), profileFolder, std::move(candidates));
}

void TestFolder::sweep(const fs::path& profileFolder) noexcept
{
    try {
        if (noted(profileFolder).empty())
            return;
        if (const auto lock = platform::LockFile::take(lockIn(profileFolder)))
            removeNoted(profileFolder);
    } catch (const std::exception&) { // the next one tries again
    }
}

std::vector<fs::path> TestFolder::noted(const fs::path& profileFolder)
{
    std::vector<fs::path> folders;
    const std::string text = platform::readRegularFile(noteIn(profileFolder)).value_or("");
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\0', at), text.size());
        if (fs::path folder = text.substr(at, end - at); isOfOurForm(folder))
            folders.push_back(std::move(folder));
        at = end + 1;
    }
    return folders;
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
    fault.clear();
    for (const fs::path& place : places_) {
        if (roomAt(place) < bytes)
            continue;
        const std::string reason = makeIn(place);
        if (reason.empty())
            return made_;
        if (fault.empty())
            fault = fmt::format("No folder to restore into can be made in {}: {}.", place.string(),
                                reason);
    }
    if (fault.empty())
        fault = fmt::format("There is not enough space to restore into: {} bytes are needed in {}.",
                            bytes, places_.front().string());
    return {};
}

std::string TestFolder::makeIn(const fs::path& place)
{
    int error = 0;
    const auto parent = TargetFolder::open(place, false, error);
    const auto status = parent ? parent->status() : std::nullopt;
    if (!status)
        return platform::systemErrorText(error);
    const bool isKeptFromOthers =
        (status->mode & kOthersWrite) == 0 || (status->mode & kSticky) != 0;
    if (!isKeptFromOthers || (status->owner != 0 && status->owner != platform::ownUserNumber()))
        return "another user could put something else in its place";
    const auto random = platform::randomUuid();
    if (!random)
        return "the system has no random name for it";
    const std::string name = std::string(kTestFolder) + *random;
    std::error_code unknown;
    const fs::path path = fs::absolute(place, unknown) / name;
    std::vector<fs::path> folders = noted(profileFolder_);
    folders.push_back(path);
    if (!writeNote(profileFolder_, folders))
        return "it cannot be noted in " + noteIn(profileFolder_).string();
    if (const int refused = parent->makeFolder(name, kAllOfOwner); refused != 0) {
        folders.pop_back();
        (void)writeNote(profileFolder_, folders);
        return platform::systemErrorText(refused);
    }
    made_ = path;
    return {};
}

void TestFolder::loosen()
{
    int error = 0;
    const auto parent = TargetFolder::open(made_.parent_path(), false, error);
    const auto folder = parent ? openOwn(*parent, made_.filename().string()) : std::nullopt;
    if (folder)
        (void)loosenBelow(*folder);
}

void TestFolder::clear() noexcept
{
    if (!made_.empty())
        removeNoted(profileFolder_);
    made_.clear();
}

} // namespace stowline::backup
