#include "stowline/platform/threads/SerialQueue.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <iterator>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <vector>

namespace stowline::platform {

namespace {

/// Which queues the thread is inside of, innermost first.
struct Frame {
    const void* core;
    const std::string* label;
    const Frame* outer;
};

thread_local const Frame* innermost = nullptr;

class InsideQueue {
public:
    InsideQueue(const void* core, const std::string& label) : frame_{core, &label, innermost}
    {
        innermost = &frame_;
    }
    InsideQueue(const InsideQueue&) = delete;
    InsideQueue& operator=(const InsideQueue&) = delete;
    ~InsideQueue() { innermost = frame_.outer; }

private:
    Frame frame_;
};

} // namespace

/// The queue proper; shared with the worker thread, which may outlive the queue object when the
/// last task destroys it.
///
/// At any time at most one party owns the turn: a sync() caller, the worker, or, where no worker
/// can be had, who stands in for it. Who finishes passes the turn on to the front of the line.
class SerialQueue::Core : public std::enable_shared_from_this<SerialQueue::Core> {
public:
    explicit Core(std::string label) : label_(std::move(label)) {}

    void async(Task task, const void* mark)
    {
        std::unique_lock lock(mutex_);
        line_.push_back({std::move(task), mark, nullptr});
        lineIsEmpty_.store(false, std::memory_order_relaxed);
        if (turnTaken_)
            return;
        turnTaken_ = true;
        giveTurnToWorker(lock);
    }

    [[nodiscard]] bool isNextMarked(const void* mark) const { return mark && nextMark_ == mark; }

    void sync(void (*call)(void*), void* callee)
    {
        takeTurn();
        const TurnPasser passer(*this);
        const InsideQueue inside(this, label_);
        call(callee);
    }

    /// Lets the worker end once the line is empty, and waits for that unless a task of the queue
    /// itself calls.
    void finish(bool isOwnTask)
    {
        std::thread worker;
        {
            std::unique_lock lock(mutex_);
            finishing_ = true;
            worker = std::move(worker_);
        }
        workerWakeUp_.notify_one();
        if (worker.get_id() == std::this_thread::get_id())
            worker.detach();
        else if (worker.joinable())
            worker.join();
        else if (!isOwnTask)
            awaitTurns();
    }

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

    [[nodiscard]] const std::string& label() const { return label_; }

private:
    struct Waiter {
        std::condition_variable wakeUp;
        bool hasTurn = false;
    };
    /// Either a task for the worker or a sync() caller that waits for its turn.
    struct Place {
        Task task;
        const void* mark;
        Waiter* waiter;
    };

    void takeTurn()
    {
        std::unique_lock lock(mutex_);
        if (!turnTaken_) {
            turnTaken_ = true;
            return;
        }
        Waiter waiter;
        line_.push_back({{}, nullptr, &waiter});
        ++waiterCount_;
        lineIsEmpty_.store(false, std::memory_order_relaxed);
        waiter.wakeUp.wait(lock, [&waiter] { return waiter.hasTurn; });
    }

    struct TurnPasser {
        Core& core;
        explicit TurnPasser(Core& of) : core(of) {}
        TurnPasser(const TurnPasser&) = delete;
        TurnPasser& operator=(const TurnPasser&) = delete;
        ~TurnPasser()
        {
            std::unique_lock lock(core.mutex_);
            core.passTurn(lock);
        }
    };

    void awaitTurns()
    {
        takeTurn();
        const TurnPasser passer(*this);
    }

    void passTurn(std::unique_lock<std::mutex>& lock)
    {
        if (line_.empty()) {
            turnTaken_ = false;
        } else if (Waiter* waiter = line_.front().waiter) {
            line_.erase(line_.begin());
            --waiterCount_;
            waiter->hasTurn = true;
            waiter->wakeUp.notify_one(); // under the lock: the waiter is gone right after
        } else {
            giveTurnToWorker(lock);
        }
    }

    /// The front of the line is a task.
    void giveTurnToWorker(std::unique_lock<std::mutex>& lock)
    {
        if (!hasWorker())
            return standIn(lock);
        workerHasTurn_ = true;
        workerWakeUp_.notify_one(); // under the lock: the task may destroy the queue
    }

    /// Starts the worker when there is none. @return false where no thread can be had
    [[nodiscard]] bool hasWorker()
    {
        if (hasWorker_ || finishing_)
            return hasWorker_;
        try {
            worker_ = std::thread([core = shared_from_this()] { core->work(); });
            hasWorker_ = true;
        } catch (const std::exception&) { // NOLINT: tried again with the next task
        }
        return hasWorker_;
    }

    /// Does the worker's work on the calling thread, which has the turn.
    void standIn(std::unique_lock<std::mutex>& lock)
    {
        const auto self = shared_from_this(); // a task may destroy the queue
        std::vector<Place> batch;
        runTasks(lock, batch);
        passTurn(lock);
    }

    void work()
    {
        std::vector<Place> batch;
        std::unique_lock lock(mutex_);
        for (;;) {
            workerWakeUp_.wait(lock, [this] { return workerHasTurn_ || finishing_; });
            if (!workerHasTurn_) {
                hasWorker_ = false;
                return;
            }
            do {
                runTasks(lock, batch);
            } while (moreComesSoon(lock));
            workerHasTurn_ = false;
            passTurn(lock);
        }
    }

    /// Runs all tasks up to the first sync() caller, in one go: one lock for many tasks.
    void runTasks(std::unique_lock<std::mutex>& lock, std::vector<Place>& batch)
    {
        while (!line_.empty() && !line_.front().waiter) {
            batch.swap(line_);
            keepWaitersInLine(batch);
            isBurst_ = batch.size() > 1;
            lineIsEmpty_.store(line_.empty(), std::memory_order_relaxed);
            lock.unlock();
            runAll(batch);
            lock.lock();
        }
    }

    /// After tasks that came several at once, looks out for more a little while before the worker
    /// goes to sleep: waking it takes longer than many a task. One that came alone is rarely
    /// followed by another, and looking costs its caller's processor.
    /// @return true when the front of the line is a task.
    bool moreComesSoon(std::unique_lock<std::mutex>& lock)
    {
        static const int looks = std::thread::hardware_concurrency() > 1 ? 64 : 0;
        if (isBurst_ && line_.empty() && !finishing_) {
            lock.unlock();
            // The first look comes late on purpose: a few tasks at once cost one lock.
            for (int i = 0;
                 i < looks && (i < looks / 8 || lineIsEmpty_.load(std::memory_order_relaxed)); ++i)
                std::this_thread::yield();
            lock.lock();
        }
        return !line_.empty() && !line_.front().waiter;
    }

    /// Moves what stands behind the first sync() caller of the batch, and that caller, back into
    /// the line.
    void keepWaitersInLine(std::vector<Place>& batch)
    {
        if (waiterCount_ == 0)
            return;
        const auto firstWaiter = std::find_if(batch.begin(), batch.end(),
                                              [](const Place& place) { return place.waiter; });
        line_.assign(std::move_iterator(firstWaiter), std::move_iterator(batch.end()));
        batch.erase(firstWaiter, batch.end());
    }

    void runAll(std::vector<Place>& batch)
    {
        const InsideQueue inside(this, label_);
        for (std::size_t i = 0; i < batch.size(); ++i) {
            nextMark_ = i + 1 < batch.size() ? batch[i + 1].mark : nullptr;
            try {
                batch[i].task();
            } catch (const std::bad_alloc&) { // NOLINT: there is nobody to tell
            }
            batch[i].task = nullptr; // what the task holds goes before the next one starts
        }
        batch.clear();
    }

    const std::string label_;
    std::mutex mutex_;
    std::condition_variable workerWakeUp_;
    std::vector<Place> line_; ///< swapped with the worker's batch, so both keep their memory
    std::size_t waiterCount_ = 0;
    std::atomic<bool> lineIsEmpty_ = true; ///< a hint for who does not hold the lock
    bool turnTaken_ = false;
    bool workerHasTurn_ = false;
    bool finishing_ = false;
    bool hasWorker_ = false;
    bool isBurst_ = false;           ///< whether the tasks of the last batch came several at once
    const void* nextMark_ = nullptr; ///< touched by who has the turn
    std::thread worker_;
};

SerialQueue::SerialQueue(std::string label) : core_(std::make_shared<Core>(std::move(label))) {}

SerialQueue::~SerialQueue()
{
    core_->finish(isCurrent());
}

void SerialQueue::async(Task task, const void* mark)
{
    core_->async(std::move(task), mark);
}

bool SerialQueue::isNextMarked(const void* mark) const
{
    return core_->isNextMarked(mark);
}

void SerialQueue::runSync(void (*call)(void*), void* callee)
{
    if (isCurrent())
        return call(callee);
    // The local reference keeps a queue alive whose last owner the task destroys, and, in the
    // child of a fork made by the task, the turn that the task still holds.
    const std::shared_ptr<Core> core = core_;
    core->sync(call, callee);
}

const std::string& SerialQueue::label() const
{
    return core_->label();
}

bool SerialQueue::isCurrent() const
{
    for (const Frame* frame = innermost; frame; frame = frame->outer) {
        if (frame->core == core_.get())
            return true;
    }
    return false;
}

bool SerialQueue::isInsideAny()
{
    return innermost != nullptr;
}

const char* SerialQueue::currentLabel()
{
    return innermost && !innermost->label->empty() ? innermost->label->c_str() : nullptr;
}

void SerialQueue::beforeFork()
{
    core_->lock();
}

void SerialQueue::afterForkInParent()
{
    core_->unlock();
}

void SerialQueue::afterForkInChild()
{
    core_->unlock();
    keepForever(core_);
    core_ = std::make_shared<Core>(std::string(core_->label()));
}

struct QueueGroup::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t open = 0;
};

QueueGroup::QueueGroup() : state_(std::make_unique<State>()) {}

QueueGroup::~QueueGroup() = default;

void QueueGroup::async(SerialQueue& queue, SerialQueue::Task task)
{
    State* state = state_.get();
    {
        const std::lock_guard lock(state->mutex);
        ++state->open;
    }
    const auto leave = [state] {
        const std::lock_guard lock(state->mutex);
        if (--state->open == 0)
            state->changed.notify_all(); // under the lock: the group may be gone right after
    };
    try {
        queue.async([leave, task = std::move(task)]() mutable {
            task();
            task = nullptr;
            leave();
        });
    } catch (...) {
        leave();
        throw;
    }
}

void QueueGroup::wait()
{
    std::unique_lock lock(state_->mutex);
    state_->changed.wait(lock, [this] { return state_->open == 0; });
}

void QueueGroup::beforeFork()
{
    state_->mutex.lock();
}

void QueueGroup::afterForkInParent()
{
    state_->mutex.unlock();
}

void QueueGroup::afterForkInChild()
{
    state_->mutex.unlock();
    keepForever(std::move(state_));
    state_ = std::make_unique<State>();
}

} // namespace stowline::platform
