#include "stowline/platform/threads/ForkSafety.h"

#include <algorithm>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace stowline::platform {

class ForkRegistry {
public:
    static ForkRegistry& instance()
    {
        static auto& registry = *new ForkRegistry; // never destroyed: statics may still log
        return registry;
    }

    void add(ForkParticipant* participant)
    {
        const std::lock_guard lock(mutex_);
        participants_.push_back(participant);
    }

    void remove(ForkParticipant* participant)
    {
        const std::lock_guard lock(mutex_);
        std::erase(participants_, participant);
    }

private:
    ForkRegistry() { ::pthread_atfork(beforeFork, inParent, inChild); }

    static void beforeFork()
    {
        instance().mutex_.lock();
        const auto& all = instance().participants_;
        std::for_each(all.rbegin(), all.rend(),
                      [](ForkParticipant* participant) { participant->beforeFork(); });
    }

    static void inParent()
    {
        for (ForkParticipant* participant : instance().participants_)
            participant->afterForkInParent();
        instance().mutex_.unlock();
    }

    static void inChild()
    {
        for (ForkParticipant* participant : instance().participants_)
            participant->afterForkInChild();
        instance().mutex_.unlock();
    }

    std::mutex mutex_;
    std::vector<ForkParticipant*> participants_;
};

ForkParticipant::ForkParticipant()
{
    ForkRegistry::instance().add(this);
}

ForkParticipant::~ForkParticipant()
{
    ForkRegistry::instance().remove(this);
}

void keepForever(std::shared_ptr<void> something)
{
    static auto& kept = *new std::vector<std::shared_ptr<void>>;
    kept.push_back(std::move(something));
}

} // namespace stowline::platform
