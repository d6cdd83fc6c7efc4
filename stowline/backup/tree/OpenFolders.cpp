#include "stowline/backup/tree/OpenFolders.h"

#include "stowline/platform/files/DescriptorLimit.h"

#include <algorithm>
#include <string>
#include <utility>

namespace stowline::backup {

using platform::FolderHandle;

void OpenFolders::push(FolderHandle folder, const platform::ItemStatus& status)
{
    frames_.push_back({std::make_shared<const FolderHandle>(std::move(folder)), status});
    // Where a process may have few descriptors, files and connections need them more.
    constexpr std::size_t ofSoMany = 16;
    const std::size_t most =
        std::max<std::size_t>(platform::descriptorLimit(kMostOpen * ofSoMany) / ofSoMany, 3);
    for (; firstOpen_ + most < frames_.size(); ++firstOpen_)
        frames_[firstOpen_].folder.reset();
}

void OpenFolders::pop(std::string_view path)
{
    const Frame left = std::move(frames_.back());
    frames_.pop_back();
    if (frames_.empty())
        return;
    if (!frames_.back().folder)
        frames_.back().folder = reopened(left.folder.get(), path);
    firstOpen_ = std::min(firstOpen_, std::max<std::size_t>(frames_.size() - 1, 1));
}

std::shared_ptr<const FolderHandle> OpenFolders::reopened(const FolderHandle* inside,
                                                          std::string_view path) const
{
    int error = 0;
    const auto checked =
        [&](std::optional<FolderHandle> folder) -> std::shared_ptr<const FolderHandle> {
        const auto status = folder ? folder->status(error) : std::nullopt;
        if (!status || !status->isSameItemAs(frames_.back().status))
            return nullptr;
        return std::make_shared<const FolderHandle>(std::move(*folder));
    };
    if (auto folder = checked(inside ? inside->parent(error) : std::nullopt))
        return folder;
    // The folder that was left was moved away; the way from the top may still be there.
    auto folder = FolderHandle::root(error);
    for (std::size_t at = 1; folder && at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        folder = folder->folder(std::string(path.substr(at, end - at)), error);
        at = end + 1;
    }
    return checked(std::move(folder));
}

} // namespace stowline::backup
