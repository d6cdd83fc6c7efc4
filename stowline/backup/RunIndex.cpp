#include "stowline/backup/RunIndex.h"

namespace stowline::backup {

namespace {

/// How much work of uploads a kill may make to be asked about again.
constexpr std::size_t kStoredBetweenCommits = 200;
constexpr std::chrono::seconds kBetweenCommits{2};

} // namespace

std::vector<StoredItem> RunIndex::itemsIn(const std::string& folder)
{
    const std::lock_guard lock(mutex_);
    return index_.itemsIn(folder);
}

std::optional<StoredItem> RunIndex::find(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    return index_.find(path);
}

void RunIndex::put(const StoredItem& item)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    index_.put(item, run_);
}

void RunIndex::putStored(const StoredItem& item)
{
    const std::lock_guard lock(mutex_);
    index_.put(item, run_);
    stored_.push_back(item.item.path);
    if (stored_.size() >= kStoredBetweenCommits ||
        std::chrono::steady_clock::now() - committed_ >= kBetweenCommits)
        commitLocked();
}

void RunIndex::remove(const std::string& path)
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    index_.remove(path, run_);
}

std::uint64_t RunIndex::keepAsStale(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    std::uint64_t count = 0;
    index_.forEach(path, [&](const StoredItem& item) {
        ++count;
        if (changes_ && !item.isStale) {
            StoredItem stale = item;
            stale.isStale = true;
            index_.put(stale, run_);
        }
        return true;
    });
    return count;
}

bool RunIndex::keepAloneAsStale(const std::string& path)
{
    const std::lock_guard lock(mutex_);
    auto item = index_.find(path);
    if (!item || !changes_ || item->isStale)
        return item.has_value();
    item->isStale = true;
    index_.put(*item, run_);
    return true;
}

void RunIndex::commit()
{
    if (!changes_)
        return;
    const std::lock_guard lock(mutex_);
    commitLocked();
}

void RunIndex::commitLocked()
{
    index_.commit();
    for (const std::string& path : stored_)
        journal_.remove(owner_, path);
    stored_.clear();
    committed_ = std::chrono::steady_clock::now();
}

} // namespace stowline::backup
