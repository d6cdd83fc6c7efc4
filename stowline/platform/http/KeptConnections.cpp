#include "stowline/platform/http/KeptConnections.h"

#include "stowline/platform/files/DescriptorLimit.h"

#include <algorithm>
#include <new>
#include <unistd.h>
#include <utility>

namespace stowline::platform {

namespace {

/// Also of many threads, each of which leaves some: a server's descriptors are not ours to hold.
constexpr std::size_t kMostKept = 64;
/// Of how many descriptors that this process may have one may be a kept connection.
constexpr std::size_t kDescriptorsForEach = 32;

std::size_t mostKept()
{
    return descriptorLimit(kMostKept * kDescriptorsForEach) / kDescriptorsForEach;
}

} // namespace

KeptConnections& KeptConnections::shared()
{
    static auto& connections = *new KeptConnections; // never destroyed: threads may outlive statics
    return connections;
}

std::unique_ptr<ConnectionSet> KeptConnections::take(const std::string& origin,
                                                     const std::string& conditions)
{
    const auto now = TimerClock::shared().now();
    List dropped; // closed when the lock is free again
    std::unique_ptr<ConnectionSet> found;
    {
        const std::lock_guard lock(mutex_);
        for (auto next = kept_.end(); next != kept_.begin();) {
            const auto kept = std::prev(next);
            const bool isOthers = kept->set->origin != origin;
            const bool isUsable = !isOthers && kept->set->conditions == conditions &&
                                  kept->closesAt > now && kept->set->sockets.areQuiet();
            if (isOthers || (isUsable && found)) {
                next = kept;
                continue;
            }
            if (isUsable)
                found = std::move(kept->set);
            dropped.splice(dropped.end(), kept_, kept);
        }
    }
    if (found)
        return found;
    found = ConnectionSet::made();
    found->origin = origin;
    found->conditions = conditions;
    found->owner = ::getpid();
    found->sessions = sessionsFor(conditions);
    return found;
}

/// Those that connections begin with that are made under the same conditions.
std::shared_ptr<TlsSessions> KeptConnections::sessionsFor(const std::string& conditions)
{
    {
        const std::lock_guard lock(mutex_);
        if (sessions_ && conditionsOfSessions_ == conditions)
            return sessions_;
    }
    auto made = std::make_shared<TlsSessions>(); // its locks may not be made under another
    std::string copy = conditions;
    auto latest = made;
    const std::lock_guard lock(mutex_); // what was there before is destroyed after it
    conditionsOfSessions_.swap(copy);
    sessions_.swap(latest);
    return made;
}

void KeptConnections::giveBack(std::unique_ptr<ConnectionSet> set) noexcept
{
    if (set->owner != ::getpid()) { // made before a fork: the connections are the parent's
        set->sockets.abandon();
        (void)set.release();
        return;
    }
    if (set->sockets.count() != 1 || !set->sockets.areQuiet()) // more came than the answer
        return;
    try {
        List dropped;
        const auto closesAt = TimerClock::shared().now() + kIdleTime;
        const std::size_t most = mostKept();
        List added;
        added.push_back({std::move(set), closesAt});
        bool isTimed = true;
        {
            const std::lock_guard lock(mutex_);
            kept_.splice(kept_.end(), added);
            if (kept_.size() > most)
                dropped.splice(dropped.end(), kept_, kept_.begin());
            std::swap(isTimed, isTimed_);
        }
        if (!isTimed)
            closeLater(closesAt);
    } catch (const std::bad_alloc&) { // NOLINT: closed now, or when the next ones are
        const std::lock_guard lock(mutex_);
        isTimed_ = false;
    }
}

void KeptConnections::closeIdle()
{
    const auto now = TimerClock::shared().now();
    List idle;
    TimerClock::Moment next{};
    {
        const std::lock_guard lock(mutex_);
        while (!kept_.empty() && kept_.front().closesAt <= now)
            idle.splice(idle.end(), kept_, kept_.begin());
        isTimed_ = !kept_.empty();
        if (isTimed_)
            next = kept_.front().closesAt;
    }
    if (next != TimerClock::Moment{})
        closeLater(next);
}

void KeptConnections::closeLater(TimerClock::Moment moment)
{
    TimerClock::shared().callAt(moment, [] { shared().closeIdle(); });
}

void KeptConnections::afterForkInChild()
{
    for (Kept& kept : kept_)
        kept.set->sockets.abandon();
    parents_.splice(parents_.end(), kept_);
    isTimed_ = false;
    mutex_.unlock();
}

} // namespace stowline::platform
