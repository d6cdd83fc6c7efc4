#include "stowline/platform/files/Volumes.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/PathText.h"

#include <libmount/libmount.h>

#include <cctype>
#include <fcntl.h>
#include <linux/stat.h>
#include <map>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

/// An item's file system and the mount through which its path goes.
struct Place {
    dev_t device = 0;
    std::optional<std::uint64_t> mount; ///< absent on systems that do not tell
};

std::optional<Place> placeOf(const fs::path& item)
{
    struct statx found = {};
    if (item.native().find('\0') != std::string::npos ||
        ::statx(AT_FDCWD, item.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID,
                &found) != 0)
        return std::nullopt;
    Place place{makedev(found.stx_dev_major, found.stx_dev_minor), std::nullopt};
    if ((found.stx_mask & STATX_MNT_ID) != 0)
        place.mount = found.stx_mnt_id;
    return place;
}

/// The numbers given so far.
class Registry {
public:
    VolumeNumber numberOf(dev_t device)
    {
        constexpr std::size_t most = 65535;
        const std::lock_guard lock(mutex_);
        const auto known = numbers_.find(device);
        if (known != numbers_.end())
            return known->second;
        if (numbers_.size() == most)
            return 0;
        // 1 to 32767, then -32768 to -1.
        const auto number = static_cast<VolumeNumber>(numbers_.size() + 1);
        return numbers_[device] = number;
    }

private:
    std::mutex mutex_;
    std::map<dev_t, VolumeNumber> numbers_;
};

struct Mount {
    fs::path path;
    fs::path source;
};

std::optional<Mount> findMount(const fs::path& item, const Place& place)
{
    const std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> table(
        mnt_new_table_from_file("/proc/self/mountinfo"), &mnt_unref_table);
    if (!table)
        return std::nullopt;
    libmnt_fs* found = nullptr;
    if (place.mount) {
        const std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> iterator(
            mnt_new_iter(MNT_ITER_FORWARD), &mnt_free_iter);
        for (libmnt_fs* entry = nullptr;
             !found && mnt_table_next_fs(table.get(), iterator.get(), &entry) == 0;) {
            if (static_cast<std::uint64_t>(mnt_fs_get_id(entry)) == *place.mount)
                found = entry;
        }
    } else {
        std::error_code unknown;
        found = mnt_table_find_mountpoint(table.get(), fs::canonical(item, unknown).c_str(),
                                          MNT_ITER_BACKWARD);
    }
    if (!found || !mnt_fs_get_target(found))
        return std::nullopt;
    const char* source = mnt_fs_get_source(found);
    return Mount{mnt_fs_get_target(found), source ? source : ""};
}

std::optional<dev_t> blockDeviceAt(const fs::path& path)
{
    struct stat found = {};
    if (::stat(path.c_str(), &found) != 0 || !S_ISBLK(found.st_mode))
        return std::nullopt;
    return found.st_rdev;
}

/// The device manager writes what a file name cannot hold as "\x20".
std::string decodedLabel(const std::string& name)
{
    const auto isHexadecimal = [](char c) {
        return std::isxdigit(static_cast<unsigned char>(c)) != 0;
    };
    std::string label;
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (at + 3 < name.size() && name[at] == '\\' && name[at + 1] == 'x' &&
            isHexadecimal(name[at + 2]) && isHexadecimal(name[at + 3])) {
            label.push_back(static_cast<char>(std::stoi(name.substr(at + 2, 2), nullptr, 16)));
            at += 3;
        } else {
            label.push_back(name[at]);
        }
    }
    return label;
}

std::optional<std::string> labelOf(dev_t device)
{
    const fs::path labels = "/dev/disk/by-label";
    for (const std::string& name : namesInFolder(labels)) {
        if (blockDeviceAt(labels / name) == device)
            return decodedLabel(name);
    }
    return std::nullopt;
}

} // namespace

VolumeNumber volumeNumberOf(const fs::path& item)
{
    static auto& registry = *new Registry;
    const auto place = placeOf(item);
    return place ? registry.numberOf(place->device) : VolumeNumber(0);
}

std::optional<fs::path> mountPathOf(const fs::path& item)
{
    const auto place = placeOf(item);
    const auto mount = place ? findMount(item, *place) : std::nullopt;
    return mount ? std::optional(mount->path) : std::nullopt;
}

std::optional<std::string> volumeNameOf(const fs::path& item)
{
    const auto place = placeOf(item);
    const auto mount = place ? findMount(item, *place) : std::nullopt;
    if (!mount)
        return std::nullopt;
    // Some file systems (btrfs) have a device number that is not that of their disk.
    const dev_t disk = blockDeviceAt(mount->source).value_or(place->device);
    const auto label = labelOf(disk);
    return label ? label : lastPathComponent(mount->path.native());
}

} // namespace stowline::platform
