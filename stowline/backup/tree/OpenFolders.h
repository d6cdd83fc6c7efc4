// The folders between the top and where a walk is, few of them open at a time.
#pragma once

#include "stowline/platform/files/FolderHandle.h"

#include <memory>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// A stack of folders, each in the one before it; the first is the root. Of a deep stack only the
/// innermost are open; the others are opened again when the walk comes back to them, and must then
/// be the very same.
class OpenFolders {
public:
    static constexpr std::size_t kMostOpen = 16;

    void push(platform::FolderHandle folder, const platform::ItemStatus& status);

    /// Leaves the innermost folder. @param path of the one that is now the innermost
    void pop(std::string_view path);

    /// The innermost folder; null when it is not where it was.
    [[nodiscard]] const std::shared_ptr<const platform::FolderHandle>& innermost() const
    {
        return frames_.back().folder;
    }

private:
    struct Frame {
        std::shared_ptr<const platform::FolderHandle> folder; ///< null: closed
        platform::ItemStatus status;
    };
    [[nodiscard]] std::shared_ptr<const platform::FolderHandle>
    reopened(const platform::FolderHandle* inside, std::string_view path) const;

    std::vector<Frame> frames_;
    std::size_t firstOpen_ = 1; ///< but the root, which always is
};

} // namespace stowline::backup
