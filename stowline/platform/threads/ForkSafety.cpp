#include "stowline/platform/threads/ForkSafety.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <vector>

namespace stowline::platform {

namespace {

/// How many pieces of work that no fork may tear the calling thread is inside of.
thread_local int piecesOfThisThread = 0;

/// Open for pieces of work until somebody forks.
class ForkGate {
public:
    void enter()
    {
        ++inside_;
        if (!isClosed_)
            return;
        leave();
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !isClosed_; });
        ++inside_; // under the lock: it cannot be closed meanwhile
    }

    void leave()
    {
        --inside_;
        if (!isClosed_)
            return;
        const std::lock_guard lock(mutex_);
        changed_.notify_all();
    }

    /// Returns when only the calling thread may be inside.
    void close()
    {
        const long own = piecesOfThisThread > 0 ? 1 : 0;
        std::unique_lock lock(mutex_);
        isClosed_ = true;
        changed_.wait(lock, [this, own] { return inside_ == own; });
    }

    void open()
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = false;
        changed_.notify_all();
    }

private:
    std::atomic<long> inside_ = 0;
    std::atomic<bool> isClosed_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
};

/// Never destroyed; in the child of a fork another one, because threads of the parent may have been
/// waiting at this one.
std::atomic<ForkGate*>& gate()
{
    static std::atomic<ForkGate*> current = new ForkGate;
    return current;
}

} // namespace

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

    std::mutex& ofLibrary(LibraryCall::To part)
    {
        return ofLibrary_.at(static_cast<std::size_t>(part));
    }

private:
    ForkRegistry()
    {
        (void)gate();
        ::pthread_atfork(beforeFork, inParent, inChild);
    }

    static void beforeFork()
    {
        // First, while nothing is locked: what is inside may need any lock to come to its end.
        instance().oneFork_.lock();
        gate().load()->close();
        instance().mutex_.lock();
        const auto& all = instance().participants_;
        std::for_each(all.rbegin(), all.rend(),
                      [](ForkParticipant* participant) { participant->beforeFork(); });
        for (std::mutex& mutex : instance().ofLibrary_)
            mutex.lock();
    }

    static void inParent()
    {
        for (std::mutex& mutex : instance().ofLibrary_)
            mutex.unlock();
        for (ForkParticipant* participant : instance().participants_)
            participant->afterForkInParent();
        instance().mutex_.unlock();
        gate().load()->open();
        instance().oneFork_.unlock();
    }

    static void inChild()
    {
        for (std::mutex& mutex : instance().ofLibrary_)
            mutex.unlock();
        for (ForkParticipant* participant : instance().participants_)
            participant->afterForkInChild();
        instance().mutex_.unlock();
        gate() = new ForkGate; // NOLINT: the parent's is kept, other threads were waiting at it
        if (piecesOfThisThread > 0)
            gate().load()->enter();
        instance().oneFork_.unlock();
    }

    std::mutex oneFork_;
    std::mutex mutex_;
    std::vector<ForkParticipant*> participants_;
    std::array<std::mutex, 2> ofLibrary_;
};

namespace {

/// Made before main(), since a fork may come beside the first use of it.
[[maybe_unused]] const ForkRegistry& registryFromTheStart = ForkRegistry::instance();

} // namespace

ForkRegistration::ForkRegistration(ForkParticipant& participant) : participant_(participant)
{
    ForkRegistry::instance().add(&participant_);
}

ForkRegistration::~ForkRegistration()
{
    ForkRegistry::instance().remove(&participant_);
}

WholeInFork::WholeInFork()
{
    if (piecesOfThisThread == 0)
        gate().load()->enter();
    ++piecesOfThisThread;
}

WholeInFork::~WholeInFork()
{
    if (--piecesOfThisThread == 0)
        gate().load()->leave();
}

LibraryCall::LibraryCall(To part) : mutex_(ForkRegistry::instance().ofLibrary(part))
{
    mutex_.lock();
}

LibraryCall::~LibraryCall()
{
    mutex_.unlock();
}

void keepForever(std::shared_ptr<void> something)
{
    static auto& kept = *new std::vector<std::shared_ptr<void>>;
    kept.push_back(std::move(something));
}

} // namespace stowline::platform
