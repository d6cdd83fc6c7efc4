#include "stowline/net/ReachabilityTarget.h"

#include "stowline/platform/desktop/MainRunLoop.h"
#include "stowline/platform/network/NetworkChanges.h"
#include "stowline/platform/threads/SerialQueue.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace stowline {

namespace {

using platform::HostFlags;
using platform::MainRunLoop;

/// What is watched of one host. Touched on the main run loop only, but for the host's name.
struct Watched {
    explicit Watched(std::string name) : host(std::move(name)) {}
    const std::string host;
    ReachabilityTarget::Callback callback;
    std::optional<HostFlags> lastFlags; ///< absent until the first look
    bool looking = false;
    bool lookAgain = false;
};

/// Name lookups block, so the looking is done here and not on the main run loop.
platform::SerialQueue& lookingQueue()
{
    static auto& queue = *new platform::SerialQueue("stowline.reachability");
    return queue;
}

void look(const std::weak_ptr<Watched>& weak);

void finishLook(const std::weak_ptr<Watched>& weak, HostFlags flags)
{
    const auto watched = weak.lock();
    if (!watched)
        return;
    watched->looking = false;
    const bool changed = watched->lastFlags && *watched->lastFlags != flags;
    watched->lastFlags = flags;
    if (std::exchange(watched->lookAgain, false))
        look(weak);
    if (changed && watched->callback)
        watched->callback(flags);
}

/// On the main run loop: looks now, or once more after the look that is under way.
void look(const std::weak_ptr<Watched>& weak)
{
    const auto watched = weak.lock();
    if (!watched)
        return;
    if (std::exchange(watched->looking, true)) {
        watched->lookAgain = true;
        return;
    }
    lookingQueue().async([weak, host = watched->host] {
        const HostFlags flags = platform::hostFlags(host).value_or(0);
        MainRunLoop::perform([weak, flags] { finishLook(weak, flags); });
    });
}

std::vector<std::weak_ptr<Watched>>& scheduled()
{
    static std::vector<std::weak_ptr<Watched>> list; // main run loop only
    return list;
}

class KernelReachabilityTarget final : public ReachabilityTarget {
public:
    explicit KernelReachabilityTarget(std::string host)
        : watched_(std::make_shared<Watched>(std::move(host)))
    {
    }

    std::optional<HostFlags> flags() override { return platform::hostFlags(watched_->host); }

    bool setCallback(Callback callback) override
    {
        watched_->callback = std::move(callback);
        return true;
    }

    bool scheduleWithMainRunLoop() override
    {
        platform::NetworkChanges::observe([] {
            for (const auto& watched : scheduled())
                look(watched);
        });
        MainRunLoop::perform([weak = std::weak_ptr(watched_)] {
            scheduled().push_back(weak);
            look(weak); // what the first look finds is what later ones are compared with
        });
        return true;
    }

    void unscheduleFromMainRunLoop() override
    {
        watched_.reset();
        MainRunLoop::perform([] {
            std::erase_if(scheduled(), [](const auto& watched) { return watched.expired(); });
        });
    }

private:
    std::shared_ptr<Watched> watched_;
};

ReachabilityTargetFactory& currentFactory()
{
    static ReachabilityTargetFactory factory = makeReachabilityTarget;
    return factory;
}

} // namespace

std::unique_ptr<ReachabilityTarget> makeReachabilityTarget(const std::string& host)
{
    if (!platform::isHostName(host))
        return nullptr;
    return std::make_unique<KernelReachabilityTarget>(host);
}

void setReachabilityTargetFactory(ReachabilityTargetFactory factory)
{
    currentFactory() = std::move(factory);
}

const ReachabilityTargetFactory& reachabilityTargetFactory()
{
    return currentFactory();
}

} // namespace stowline
