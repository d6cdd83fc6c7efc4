// Serial queues: tasks one after another, in order, without being a thread.
#pragma once

#include "stowline/platform/threads/ForkSafety.h"
#include "stowline/platform/threads/Task.h"

#include <memory>
#include <string>
#include <type_traits>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Runs tasks one at a time, in the order in which they were handed over, whichever threads handed
/// them over. Tasks handed over with async() run on a worker thread that starts when first needed;
/// a task handed over with sync() runs on the caller's own thread: at once when the queue is idle,
/// else when everything before it is done.
///
/// Where no thread can be had, whoever hands a task over, or ends a sync() before it, runs it.
///
/// Any thread. In the child of a fork() the queue is empty and works: what was waiting belongs to
/// the parent. A task that throws is an error of the program and ends it; but an asynchronous one
/// that finds no memory (std::bad_alloc) just ends, and the next one runs.
class SerialQueue final : private ForkParticipant {
public:
    using Task = platform::Task;

    /// @param label names the queue in logs; may be empty.
    explicit SerialQueue(std::string label);

    /// Runs what is waiting to its end first. May be called from a task of the queue itself.
    ~SerialQueue() override;

    /// Puts a task at the end and returns at once.
    /// @param mark the same for tasks that may be done together, see isNextMarked()
    /// @throws std::bad_alloc when there is no room for it
    void async(Task task, const void* mark = nullptr);

    /// For a task of this queue: whether one with this mark is sure to run right after it.
    [[nodiscard]] bool isNextMarked(const void* mark) const;

    /// Puts a task at the end and returns when it has run. From a task of this queue it runs at
    /// once, because waiting for its turn would never end.
    template <class F> void sync(F&& task)
    {
        runSync([](void* callee) { (*static_cast<std::remove_reference_t<F>*>(callee))(); },
                const_cast<void*>(static_cast<const void*>(&task)));
    }

    [[nodiscard]] const std::string& label() const;

    /// Whether the calling thread is running a task of this queue, also indirectly (a task of
    /// another queue that runs inline inside one of this queue).
    [[nodiscard]] bool isCurrent() const;

    /// Whether the calling thread is running a task of any queue.
    [[nodiscard]] static bool isInsideAny();

    /// Label of the queue whose task the calling thread is running; null when it runs none or the
    /// queue has an empty label. Valid during the task.
    [[nodiscard]] static const char* currentLabel();

private:
    class Core;
    /// A task that stays where it is: nothing is copied or allocated for it.
    void runSync(void (*call)(void*), void* callee);
    void beforeFork() override;
    void afterForkInParent() override;
    void afterForkInChild() override;

    std::shared_ptr<Core> core_;
    const ForkRegistration registration_{*this};
};

/// Counts tasks on any queues, so that a thread can wait for all of them.
///
/// Any thread. In the child of a fork() the group is empty.
class QueueGroup final : private ForkParticipant {
public:
    QueueGroup();
    ~QueueGroup() override;

    /// Puts a task on the queue as one of this group. The group must outlive the task.
    void async(SerialQueue& queue, SerialQueue::Task task);

    /// Returns when no task of the group is waiting or running.
    void wait();

private:
    struct State;
    void beforeFork() override;
    void afterForkInParent() override;
    void afterForkInChild() override;

    std::unique_ptr<State> state_;
    const ForkRegistration registration_{*this};
};

} // namespace stowline::platform
#pragma GCC visibility pop
