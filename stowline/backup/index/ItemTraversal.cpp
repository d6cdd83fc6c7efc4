#include "stowline/backup/index/ItemTraversal.h"

#include <utility>
#include <vector>

namespace stowline::backup {

namespace {

using Take = std::function<bool(std::string&&, std::optional<StoredItem>&)>;

constexpr std::int64_t kPage = 128;

bool isBelow(std::string_view path, std::string_view folder)
{
    if (folder.empty())
        return true;
    if (folder == "/")
        return !path.empty();
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

/// The rows of one folder, read page by page.
class FolderRows {
public:
    FolderRows(ItemIndex::Tables& tables, ItemIndex::Tables::Folder folder, const Choice& choice)
        : tables_(tables), folder_(std::move(folder)), choice_(choice)
    {
    }

    [[nodiscard]] const std::string& folderPath() const { return folder_.path; }

    /// Hands on the rows whose paths do not come after one (absent: all). @return whether to go on
    bool takeUpTo(std::optional<std::string_view> path, const Take& take)
    {
        while (hasRow()) {
            auto& row = page_[at_];
            std::string itemPath = folder_.path.empty() ? row.name : pathIn(folder_.path, row.name);
            if (path && comparePaths(itemPath, *path) > 0)
                return true;
            ++at_;
            if (!take(std::move(itemPath), row.item))
                return false;
        }
        return true;
    }

private:
    bool hasRow()
    {
        if (at_ == page_.size() && !isLastPage_) {
            const std::string after = page_.empty() ? std::string() : page_.back().name;
            page_ = tables_.rowsIn(folder_.id, folder_.path,
                                   {.after = after,
                                    .changedAfter = choice_.changedAfter,
                                    .withGone = choice_.withGone,
                                    .atMost = kPage});
            at_ = 0;
            isLastPage_ = page_.size() < static_cast<std::size_t>(kPage);
        }
        return at_ < page_.size();
    }

    ItemIndex::Tables& tables_;
    ItemIndex::Tables::Folder folder_;
    Choice choice_;
    std::vector<ItemIndex::Tables::Row> page_;
    std::size_t at_ = 0;
    bool isLastPage_ = false;
};

/// Folders come in walking order; each is opened when what lies before it has been handed on.
class Traversal {
public:
    Traversal(ItemIndex::Tables& tables, const Choice& choice, const Take& take)
        : tables_(tables), choice_(choice), take_(take)
    {
    }

    bool enter(ItemIndex::Tables::Folder folder)
    {
        while (!open_.empty() && !isBelow(folder.path, open_.back().folderPath())) {
            if (!finishInnermost())
                return false;
        }
        if (!open_.empty() && !open_.back().takeUpTo(folder.path, take_))
            return false;
        open_.emplace_back(tables_, std::move(folder), choice_);
        return true;
    }

    bool finish()
    {
        while (!open_.empty()) {
            if (!finishInnermost())
                return false;
        }
        return true;
    }

private:
    bool finishInnermost()
    {
        const bool goesOn = open_.back().takeUpTo(std::nullopt, take_);
        open_.pop_back();
        return goesOn;
    }

    ItemIndex::Tables& tables_;
    const Choice& choice_;
    const Take& take_;
    std::vector<FolderRows> open_;
};

} // namespace

void traverse(ItemIndex::Tables& tables, const KeyRange& folders, const Choice& choice,
              const Take& take)
{
    Traversal traversal(tables, choice, take);
    std::string from = folders.first;
    for (bool isFirst = true;; isFirst = false) {
        const auto page =
            tables.foldersFrom(from, isFirst, folders.end, choice.changedAfter, kPage);
        for (const auto& folder : page) {
            if (!traversal.enter(folder))
                return;
        }
        if (page.size() < static_cast<std::size_t>(kPage))
            break;
        from = pathKey(page.back().path);
    }
    (void)traversal.finish();
}

} // namespace stowline::backup
