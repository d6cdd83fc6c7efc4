#include "devserver/Deletions.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>

namespace stowline::devserver {

namespace {

constexpr std::size_t kGuidBytes = 16;
constexpr std::chrono::milliseconds kTroublePause{1000}; ///< until a full disk may have room again

} // namespace

Deletions::Deletions(Storage& storage, std::chrono::milliseconds pause)
    : storage_(storage), pause_(pause), worker_([this] { work(); })
{
}

Deletions::~Deletions()
{
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    worker_.join();
}

std::optional<std::string> Deletions::begin(const std::string& userName,
                                            const std::string& systemName, const std::string& path)
{
    Process process;
    process.listIds = storage_.listIdsBelow(userName, systemName, path);
    if (process.listIds.empty())
        return std::nullopt;
    process.state = {.guid = platform::hexadecimalText(platform::randomBytes(kGuidBytes)),
                     .userName = userName,
                     .systemName = systemName,
                     .path = path,
                     .versions = static_cast<std::int64_t>(process.listIds.size())};
    const std::string guid = process.state.guid;
    const std::lock_guard lock(mutex_);
    processes_.emplace(guid, std::move(process));
    order_.push_back(guid);
    changed_.notify_all();
    return guid;
}

std::optional<DeletionState> Deletions::state(const std::string& userName, const std::string& guid)
{
    const std::lock_guard lock(mutex_);
    const auto found = processes_.find(guid);
    if (found == processes_.end() || found->second.state.userName != userName)
        return std::nullopt;
    return found->second.state;
}

void Deletions::cancel(const std::string& userName, const std::string& guid)
{
    const std::lock_guard lock(mutex_);
    const auto found = processes_.find(guid);
    if (found == processes_.end() || found->second.state.userName != userName)
        return;
    found->second.isToBeCancelled = true;
    changed_.notify_all();
}

std::vector<DeletionState> Deletions::all()
{
    const std::lock_guard lock(mutex_);
    std::vector<DeletionState> states;
    for (const std::string& guid : order_)
        states.push_back(processes_.at(guid).state);
    return states;
}

bool Deletions::workOn(Process& process, std::unique_lock<std::mutex>& lock)
{
    DeletionState& state = process.state;
    if (process.isToBeCancelled) {
        state.isCancelled = true;
        return true;
    }
    if (process.listIds.empty()) {
        state.isCompleted = true;
        return true;
    }
    const std::string listId = process.listIds.front();
    lock.unlock();
    const auto trouble = deleteOne(state.userName, listId);
    lock.lock();
    state.trouble = trouble.value_or("");
    if (!trouble) {
        process.listIds.erase(process.listIds.begin());
        ++state.deleted;
    }
    changed_.wait_for(lock, trouble ? std::max(pause_, kTroublePause) : pause_,
                      [&] { return isEnding_ || process.isToBeCancelled; });
    return false;
}

/// @return what kept it from being done; it is tried again then
std::optional<std::string> Deletions::deleteOne(const std::string& userName,
                                                const std::string& listId)
try {
    (void)storage_.deleteVersion(userName, listId); // it may be gone already
    return std::nullopt;
} catch (const std::exception& fault) {
    STOWLINE_LOG_ERROR("A version cannot be deleted, and is tried again: %@", fault.what());
    return fault.what();
}

void Deletions::work()
{
    std::unique_lock lock(mutex_);
    std::size_t next = 0;
    while (!isEnding_) {
        if (next == order_.size())
            changed_.wait(lock, [&] { return isEnding_ || next < order_.size(); });
        else if (workOn(processes_.at(order_[next]), lock))
            ++next;
    }
}

} // namespace stowline::devserver
