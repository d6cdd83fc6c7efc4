// Connections that are kept open between exchanges.
#pragma once

#include "stowline/platform/http/ConnectionSet.h"
#include "stowline/platform/threads/Timer.h"

#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace stowline::platform {

/// Those of this process that no exchange uses now. Any thread.
///
/// They are closed when nobody has used them for kIdleTime, which is less than what servers
/// commonly wait. The child of a fork() has none: its copies are closed without a word, for the
/// other side still speaks with the parent.
class KeptConnections final : private ForkParticipant {
public:
    static constexpr std::chrono::seconds kIdleTime{4};

    /// Those of the process. Never destroyed.
    static KeptConnections& shared();

    /// Takes out the ones to an origin that were used last; closes those to it that were made under
    /// other conditions (proxy, trust roots) or on which something has arrived meanwhile.
    /// @return without connections where none are kept
    [[nodiscard]] std::unique_ptr<ConnectionSet> take(const std::string& origin,
                                                      const std::string& conditions);

    /// Keeps what take() handed out, after an exchange that ended with a whole answer. For want of
    /// memory they are closed instead.
    void giveBack(std::unique_ptr<ConnectionSet> set) noexcept;

private:
    struct Kept {
        std::unique_ptr<ConnectionSet> set;
        TimerClock::Moment closesAt;
    };
    using List = std::list<Kept>;

    KeptConnections() = default;
    ~KeptConnections() override = default;
    std::shared_ptr<TlsSessions> sessionsFor(const std::string& conditions);
    void closeIdle();
    static void closeLater(TimerClock::Moment moment);
    void beforeFork() override { mutex_.lock(); }
    void afterForkInParent() override { mutex_.unlock(); }
    void afterForkInChild() override;

    std::mutex mutex_;
    List kept_;            ///< the one that was given back first leads
    List parents_;         ///< after a fork: never touched again
    bool isTimed_ = false; ///< whether closeIdle() will be called
    std::shared_ptr<TlsSessions> sessions_;
    std::string conditionsOfSessions_;
    const ForkRegistration registration_{*this};
};

} // namespace stowline::platform
