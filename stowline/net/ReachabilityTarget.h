// One host as the reachability operations see it: the seam to the machine.
#pragma once

#include "stowline/platform/network/HostFlags.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace stowline {

/// Something that can be asked for the flags of one host, and that can tell when they change.
class ReachabilityTarget {
public:
    using Callback = std::function<void(platform::HostFlags)>;

    virtual ~ReachabilityTarget() = default;

    /// The flags now; absent when they cannot be read, or not in time. Blocks for a name lookup.
    [[nodiscard]] virtual std::optional<platform::HostFlags> flags() = 0;

    /// Sets what is called on the main run loop with the new flags whenever they change.
    [[nodiscard]] virtual bool setCallback(Callback callback) = 0;
    [[nodiscard]] virtual bool scheduleWithMainRunLoop() = 0;
    virtual void unscheduleFromMainRunLoop() = 0;
};

using ReachabilityTargetFactory =
    std::function<std::unique_ptr<ReachabilityTarget>(const std::string& host)>;

/// A target that asks the name service and the kernel (platform::hostFlags), and looks again
/// whenever the network changes; null when the text can be no host name.
[[nodiscard]] std::unique_ptr<ReachabilityTarget> makeReachabilityTarget(const std::string& host);

/// Replaces makeReachabilityTarget for the whole process, for tests that need a target to fail.
/// Before any reachability operation is in use.
void setReachabilityTargetFactory(ReachabilityTargetFactory factory);
[[nodiscard]] const ReachabilityTargetFactory& reachabilityTargetFactory();

} // namespace stowline
