#include "stowline/platform/desktop/NotificationCenter.h"

namespace stowline::platform {

NotificationCenter& NotificationCenter::shared()
{
    static auto& center = *new NotificationCenter;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(std::string name, Observer observer)
{
    const std::lock_guard lock(mutex_);
    entries_.push_back(
        {++lastToken_, std::move(name), std::make_shared<const Observer>(std::move(observer))});
    return lastToken_;
}

void NotificationCenter::removeObserver(Token token)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [token](const Entry& entry) { return entry.token == token; });
}

void NotificationCenter::post(const Notification& notification)
{
    std::vector<std::shared_ptr<const Observer>> observers;
    {
        const std::lock_guard lock(mutex_);
        for (const Entry& entry : entries_) {
            if (entry.name == notification.name)
                observers.push_back(entry.observer);
        }
    }
    for (const auto& observer : observers)
        (*observer)(notification);
}

} // namespace stowline::platform
