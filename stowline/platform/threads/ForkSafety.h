// Keeping locks usable in the child of a fork().
#pragma once

#include <memory>
#include <mutex>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Something with locks or threads of its own that must still work in the child of a fork(),
/// where only the forking thread lives on.
///
/// Around every fork of the process: beforeFork() of all that are registered, the youngest first
/// (takes the locks, so that no lock is held by a thread that will not exist), then
/// afterForkInParent() or afterForkInChild() of all. The locks must be ones that are never held
/// while a younger participant's lock is taken.
class ForkParticipant {
public:
    ForkParticipant() = default;
    ForkParticipant(const ForkParticipant&) = delete;
    ForkParticipant& operator=(const ForkParticipant&) = delete;

protected:
    virtual ~ForkParticipant() = default;

private:
    friend class ForkRegistry;
    virtual void beforeFork() = 0;
    virtual void afterForkInParent() = 0;
    virtual void afterForkInChild() = 0;
};

/// Registers a participant for the time of its life: as its last member, so that a fork never meets
/// one that is half made or half gone.
class ForkRegistration {
public:
    explicit ForkRegistration(ForkParticipant& participant);
    ~ForkRegistration();
    ForkRegistration(const ForkRegistration&) = delete;
    ForkRegistration& operator=(const ForkRegistration&) = delete;

private:
    ForkParticipant& participant_;
};

/// A mutex that no thread holds when a child of a fork() begins, so that it works there. While it
/// is held, of other participants only older ones may be locked, and none may be made.
class ForkSafeMutex final : private ForkParticipant {
public:
    ForkSafeMutex() = default;
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

private:
    void beforeFork() override { mutex_.lock(); }
    void afterForkInParent() override { mutex_.unlock(); }
    void afterForkInChild() override { mutex_.unlock(); }

    std::mutex mutex_;
    const ForkRegistration registration_{*this};
};

/// A piece of work that no fork() tears: a fork of another thread waits for its end, so that the
/// child finds whole what the piece works on. Pieces nest. Within one anything may be locked and
/// made; it must be short, and wait for nothing that a thread may hold that forks.
class WholeInFork {
public:
    WholeInFork();
    ~WholeInFork();
    WholeInFork(const WholeInFork&) = delete;
    WholeInFork& operator=(const WholeInFork&) = delete;
};

/// A call into the C library that takes a lock of the library's own, which would stay taken for
/// good in the child of a fork() of another thread. While one of these lives nobody forks, and
/// nobody else makes such a call. Any participant's lock may be held meanwhile; nothing may be
/// locked or made within.
class LibraryCall {
public:
    enum class To { systemLog, timeZone };
    explicit LibraryCall(To part);
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;

private:
    std::mutex& mutex_;
};

/// Keeps something for the rest of the process without ever destroying it. For what cannot be
/// destroyed in the child of a fork: a condition variable that other threads were waiting on would
/// wait for them, a std::thread stands for a thread that does not exist.
void keepForever(std::shared_ptr<void> something);

} // namespace stowline::platform
#pragma GCC visibility pop
