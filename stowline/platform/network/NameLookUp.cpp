#include "stowline/platform/network/NameLookUp.h"

#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace stowline::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kDiscardPort = "9"; // any port will do: nothing is sent

/// How long to wait at once for an answer or a request to stop.
constexpr std::chrono::milliseconds kLook{50};

NameAnswer answerFor(const std::string& name, int flags)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    const int fault = ::getaddrinfo(name.c_str(), kDiscardPort, &hints, &list);
    if (fault != 0)
        return {fault, nullptr};
    return {0, std::shared_ptr<const addrinfo>(list, [list](const addrinfo*) { // NOLINT: its owner
                ::freeaddrinfo(list);
            })};
}

bool isStopRequested(const StopRequest* stop)
{
    return stop && stop->isRequested();
}

/// One look-up, of a thread that makes it and those that wait for it.
class LookUp {
public:
    explicit LookUp(std::string name) : name_(std::move(name)) {}

    [[nodiscard]] const std::string& name() const { return name_; }

    [[nodiscard]] NameAnswer ask() const
    {
        try {
            return answerFor(name_, 0);
        } catch (const std::bad_alloc&) {
            return {EAI_MEMORY, nullptr};
        }
    }

    void tell(NameAnswer answer)
    {
        const std::lock_guard lock(mutex_);
        answer_ = std::move(answer);
        arrived_.notify_all();
    }

    [[nodiscard]] std::optional<NameAnswer> await(Clock::time_point deadline)
    {
        const StopRequest* stop = StopRequest::ofThisThread();
        std::unique_lock lock(mutex_);
        while (!answer_) {
            const auto now = Clock::now();
            if (now >= deadline || isStopRequested(stop))
                return std::nullopt;
            arrived_.wait_until(lock, stop ? std::min(deadline, now + kLook) : deadline);
        }
        return answer_;
    }

private:
    const std::string name_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::optional<NameAnswer> answer_;
};

/// The look-ups under way: one for each name, so that one that hangs costs one thread.
class LookUps final : private ForkParticipant {
public:
    static LookUps& shared()
    {
        static auto& lookUps = *new LookUps; // lives until the process ends
        return lookUps;
    }

    [[nodiscard]] std::shared_ptr<LookUp> of(const std::string& name)
    {
        const auto [lookUp, isNew] = joined(name);
        if (!isNew)
            return lookUp;
        try {
            std::thread([this, lookUp = lookUp] { perform(*lookUp); }).detach();
        } catch (const std::exception&) { // there is no thread to be had
            perform(*lookUp);
        }
        return lookUp;
    }

private:
    using UnderWay = std::map<std::string, std::shared_ptr<LookUp>>;

    [[nodiscard]] std::pair<std::shared_ptr<LookUp>, bool> joined(const std::string& name)
    {
        const std::lock_guard lock(mutex_);
        auto& lookUp = (*underWay_)[name];
        const bool isNew = !lookUp;
        if (isNew)
            lookUp = std::make_shared<LookUp>(name);
        return {lookUp, isNew};
    }

    void perform(LookUp& lookUp)
    {
        NameAnswer answer = lookUp.ask();
        {
            const std::lock_guard lock(mutex_);
            underWay_->erase(lookUp.name()); // first: who asks after the answer asks anew
        }
        lookUp.tell(std::move(answer));
    }

    void beforeFork() override { mutex_.lock(); }
    void afterForkInParent() override { mutex_.unlock(); }
    void afterForkInChild() override
    {
        mutex_.unlock();
        keepForever(std::exchange(underWay_, std::make_shared<UnderWay>()));
    }

    std::mutex mutex_;
    std::shared_ptr<UnderWay> underWay_ = std::make_shared<UnderWay>();
    const ForkRegistration registration_{*this};
};

/// Made before main(), since a fork may come beside the first use of it.
[[maybe_unused]] const LookUps& lookUpsFromTheStart = LookUps::shared();

} // namespace

std::optional<NameAnswer> lookedUp(const std::string& name, std::chrono::milliseconds patience)
{
    const auto deadline = Clock::now() + patience;
    if (isStopRequested(StopRequest::ofThisThread()))
        return std::nullopt;
    if (const NameAnswer itself = answerFor(name, AI_NUMERICHOST); itself.fault != EAI_NONAME)
        return itself;
    return LookUps::shared().of(name)->await(deadline);
}

} // namespace stowline::platform
