#include "stowline/logging/DDLog.h"

#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/desktop/NotificationCenter.h"
#include "stowline/platform/threads/Semaphore.h"
#include "stowline/platform/threads/SerialQueue.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <thread>

namespace stowline {

using platform::SerialQueue;

namespace {

constexpr long kMostQueuedMessages = 1000;
constexpr std::size_t kUsualLoggerCount = 4;

/// How many logger operations the calling thread is inside of.
thread_local int insideLogger = 0;

/// A logger and the queue on which it is called.
struct DDLoggerNode {
    std::shared_ptr<DDLogger> logger;
    std::shared_ptr<SerialQueue> loggerQueue;
};

/// Does what can be left undone when there is no memory.
template <class Work> void whereMemoryAllows(Work work) noexcept
{
    try {
        work();
    } catch (const std::bad_alloc&) { // NOLINT: a line is lost
    }
}

/// Runs one operation of a logger; what it throws ends here.
template <class Operation> void callLogger(DDLogger& logger, Operation operation) noexcept
{
    ++insideLogger;
    whereMemoryAllows([&] {
        try {
            operation(logger);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& fault) {
            platform::consoleLog("The logger " + logger.loggerName() + " failed: " + fault.what());
        } catch (...) {
            platform::consoleLog("The logger " + logger.loggerName() + " failed.");
        }
    });
    --insideLogger;
}

/// Messages that are queued, or about to be. In the child of a fork() none are.
class WaitingCount final : private platform::ForkParticipant {
public:
    void add() { count_.fetch_add(1, std::memory_order_relaxed); }
    [[nodiscard]] bool isMoreAfterTakingOne()
    {
        return count_.fetch_sub(1, std::memory_order_relaxed) > 1;
    }

private:
    void beforeFork() override {}
    void afterForkInParent() override {}
    void afterForkInChild() override { count_ = 0; }

    std::atomic<long> count_ = 0;
};

/// The hardware's number; 1 when it cannot be told.
unsigned processorCount()
{
    return std::max(1U, std::thread::hardware_concurrency());
}

} // namespace

class DDLog::Hub {
public:
    /// Made on first use and never destroyed: static destructors may still log.
    static Hub& instance()
    {
        static auto& hub = *new Hub;
        return hub;
    }

    void queue(std::shared_ptr<const DDLogMessage> message, bool asynchronously)
    {
        // Waiting inside a logger would be waiting for oneself: the line is queued at once.
        if (insideLogger > 0)
            queueSize_.takeWithoutWaiting();
        else
            queueSize_.wait();
        waiting_.add();
        try {
            if (asynchronously || insideLogger > 0)
                queue_.async(
                    [message = std::move(message)] { instance().deliver(*message, false); });
            else
                queue_.sync([this, &message] { deliver(*message, true); });
        } catch (...) { // the queue did not take it
            (void)waiting_.isMoreAfterTakingOne();
            queueSize_.signal();
            throw;
        }
    }

    [[nodiscard]] bool isMoreOnItsWay() const { return isMoreOnItsWay_; }

    void add(std::shared_ptr<DDLogger> logger)
    {
        queue_.async([this, logger = std::move(logger)] {
            auto queue = logger->loggerQueue();
            if (!queue)
                queue = std::make_shared<SerialQueue>(logger->loggerName());
            nodes_.push_back({logger, queue});
            tell(nodes_.back(), [](DDLogger& added) { added.didAddLogger(); });
        });
    }

    void remove(std::shared_ptr<DDLogger> logger)
    {
        queue_.async([this, logger = std::move(logger)] {
            const auto node =
                std::find_if(nodes_.begin(), nodes_.end(),
                             [&](const auto& candidate) { return candidate.logger == logger; });
            if (node == nodes_.end())
                return;
            tell(*node, [](DDLogger& removed) { removed.willRemoveLogger(); });
            nodes_.erase(node);
        });
    }

    void removeAll()
    {
        queue_.async([this] {
            for (const DDLoggerNode& node : nodes_)
                tell(node, [](DDLogger& removed) { removed.willRemoveLogger(); });
            nodes_.clear();
        });
    }

    void flush()
    {
        if (insideLogger > 0)
            return;
        whereMemoryAllows([this] {
            queue_.sync([this] { onEveryLogger([](DDLogger& logger) { logger.flush(); }); });
        });
    }

    SerialQueue& loggingQueue() { return queue_; }

private:
    Hub()
    {
        nodes_.reserve(kUsualLoggerCount);
        platform::NotificationCenter::shared().addObserver(
            platform::kApplicationWillTerminateNotification,
            [this](const platform::Notification&) { flush(); });
        std::atexit([] { flushLog(); });
    }

    void deliver(const DDLogMessage& message, bool isAwaited) noexcept
    {
        isMoreOnItsWay_ = waiting_.isMoreAfterTakingOne() && !isAwaited;
        onEveryLogger([&message](DDLogger& logger) { logger.logMessage(message); });
        isMoreOnItsWay_ = false;
        queueSize_.signal();
    }

    /// Runs an operation of every logger on its queue and returns when all are done.
    ///
    /// All but the last run on their queues' own threads, side by side; the last runs inline, which
    /// saves two changes of thread for every message, and all of them when there is one logger.
    template <class Operation> void onEveryLogger(Operation operation) noexcept
    {
        const std::size_t inParallel = processors_ < 2 || nodes_.empty() ? 0 : nodes_.size() - 1;
        for (std::size_t i = 0; i < inParallel; ++i) {
            DDLogger* logger = nodes_[i].logger.get();
            whereMemoryAllows([&] {
                group_.async(*nodes_[i].loggerQueue,
                             [logger, operation] { callLogger(*logger, operation); });
            });
        }
        for (std::size_t i = inParallel; i < nodes_.size(); ++i) {
            DDLogger& logger = *nodes_[i].logger;
            whereMemoryAllows(
                [&] { nodes_[i].loggerQueue->sync([&] { callLogger(logger, operation); }); });
        }
        if (inParallel > 0)
            group_.wait();
    }

    /// Tells one logger something on its queue, without waiting.
    template <class Operation> static void tell(const DDLoggerNode& node, Operation operation)
    {
        node.loggerQueue->async(
            [logger = node.logger, operation] { callLogger(*logger, operation); });
    }

    const unsigned processors_ = processorCount();
    std::vector<DDLoggerNode> nodes_; ///< touched on the logging queue only
    WaitingCount waiting_;
    bool isMoreOnItsWay_ = false; ///< touched on the logging queue, read by loggers it waits for
    platform::QueueGroup group_;
    platform::Semaphore queueSize_{kMostQueuedMessages};
    SerialQueue queue_{"com.Stowline.logging"};
};

class DDLog::ClassRegistry {
public:
    static ClassRegistry& instance()
    {
        static auto& registry = *new ClassRegistry;
        return registry;
    }

    void add(RegisteredClass registered)
    {
        const std::lock_guard lock(mutex_);
        if (!findLocked([&](const auto& known) { return known.type == registered.type; }))
            classes_.push_back(std::move(registered));
    }

    [[nodiscard]] std::vector<RegisteredClass> all()
    {
        const std::lock_guard lock(mutex_);
        return classes_;
    }

    template <class Condition>
    [[nodiscard]] std::optional<RegisteredClass> findIf(Condition condition)
    {
        const std::lock_guard lock(mutex_);
        return findLocked(condition);
    }

private:
    template <class Condition> std::optional<RegisteredClass> findLocked(Condition condition)
    {
        const auto found = std::find_if(classes_.begin(), classes_.end(), condition);
        return found == classes_.end() ? std::nullopt : std::optional(*found);
    }

    platform::ForkSafeMutex mutex_;
    std::vector<RegisteredClass> classes_;
};

void DDLog::logFormatted(bool asynchronous, std::int32_t level, std::int32_t flag,
                         std::int32_t context, const char* file, const char* function,
                         std::int32_t line, std::string_view format,
                         std::span<const platform::FormatArgument> arguments)
{
    queueLogMessage(
        std::make_shared<const DDLogMessage>(platform::formatWithArguments(format, arguments),
                                             level, flag, context, file, function, line),
        asynchronous);
}

void DDLog::queueLogMessage(std::shared_ptr<const DDLogMessage> message, bool asynchronously)
{
    Hub::instance().queue(std::move(message), asynchronously);
}

void DDLog::addLogger(std::shared_ptr<DDLogger> logger)
{
    if (logger)
        Hub::instance().add(std::move(logger));
}

void DDLog::removeLogger(std::shared_ptr<DDLogger> logger)
{
    if (logger)
        Hub::instance().remove(std::move(logger));
}

void DDLog::removeAllLoggers()
{
    Hub::instance().removeAll();
}

void DDLog::flushLog()
{
    Hub::instance().flush();
}

bool DDLog::isMoreOnItsWay()
{
    return Hub::instance().isMoreOnItsWay();
}

SerialQueue& DDLog::loggingQueue()
{
    return Hub::instance().loggingQueue();
}

void DDLog::registerClass(RegisteredClass registered)
{
    ClassRegistry::instance().add(std::move(registered));
}

std::vector<std::type_index> DDLog::registeredClasses()
{
    std::vector<std::type_index> types;
    for (const RegisteredClass& known : ClassRegistry::instance().all())
        types.push_back(known.type);
    return types;
}

std::vector<std::string> DDLog::registeredClassNames()
{
    std::vector<std::string> names;
    for (const RegisteredClass& known : ClassRegistry::instance().all())
        names.push_back(known.name);
    return names;
}

bool DDLog::isRegisteredClass(std::type_index type)
{
    return ClassRegistry::instance()
        .findIf([type](const auto& known) { return known.type == type; })
        .has_value();
}

std::int32_t DDLog::logLevelForClass(std::type_index type)
{
    const auto found =
        ClassRegistry::instance().findIf([type](const auto& known) { return known.type == type; });
    return found ? found->level() : -1;
}

std::int32_t DDLog::logLevelForClassWithName(std::string_view name)
{
    const auto found =
        ClassRegistry::instance().findIf([name](const auto& known) { return known.name == name; });
    return found ? found->level() : -1;
}

void DDLog::setLogLevelForClass(std::int32_t level, std::type_index type)
{
    if (const auto found = ClassRegistry::instance().findIf(
            [type](const auto& known) { return known.type == type; }))
        found->setLevel(level);
}

void DDLog::setLogLevelForClassWithName(std::int32_t level, std::string_view name)
{
    if (const auto found = ClassRegistry::instance().findIf(
            [name](const auto& known) { return known.name == name; }))
        found->setLevel(level);
}

} // namespace stowline
