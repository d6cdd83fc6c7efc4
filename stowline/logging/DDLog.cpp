#include "stowline/logging/DDLog.h"

#include "stowline/logging/LoggerGuard.h"
#include "stowline/platform/desktop/NotificationCenter.h"
#include "stowline/platform/threads/Semaphore.h"
#include "stowline/platform/threads/SerialQueue.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace stowline {

using platform::SerialQueue;

namespace {

constexpr long kMostQueuedMessages = 1000;
constexpr std::size_t kMostTogether = 64;
constexpr std::size_t kUsualLoggerCount = 4;

/// How many logger operations the calling thread is inside of.
thread_local int insideLogger = 0;

/// A logger and the queue on which it is called.
struct DDLoggerNode {
    std::shared_ptr<DDLogger> logger;
    std::shared_ptr<SerialQueue> loggerQueue;
};

/// Runs one operation of a logger; what it throws ends here.
template <class Operation> void callLogger(DDLogger& logger, Operation operation) noexcept
{
    ++insideLogger;
    whereMemoryAllows([&] { guarded(logger.loggerName(), [&] { operation(logger); }); });
    --insideLogger;
}

/// The hardware's number; 1 when it cannot be told.
unsigned processorCount()
{
    return std::max(1U, std::thread::hardware_concurrency());
}

} // namespace

class DDLog::Hub final : private platform::ForkParticipant {
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
        const bool mayWait = !isInsideLogger();
        if (mayWait)
            queueSize_.wait();
        else
            queueSize_.takeWithoutWaiting();
        try {
            if (asynchronously || !mayWait)
                queue_.async([message = std::move(message)] { instance().take(message); },
                             kMessageMark);
            else
                queue_.sync([this, &message] { deliver(*message); });
        } catch (...) { // the queue did not take it
            queueSize_.signal();
            throw;
        }
    }

    void add(const std::shared_ptr<DDLogger>& logger)
    {
        auto queue = logger->loggerQueue();
        if (!queue)
            queue = std::make_shared<SerialQueue>(logger->loggerName());
        const DDLoggerNode node{logger, std::move(queue)};
        changeRegistered([&] { registered_.push_back(node); });
        queue_.async([this, node] {
            changeNodes([&] { nodes_.push_back(node); });
            tell(node, [](DDLogger& added) { added.didAddLogger(); });
        });
    }

    void remove(const std::shared_ptr<DDLogger>& logger)
    {
        changeRegistered([&] { (void)takeOut(registered_, logger); });
        queue_.async([this, logger] {
            std::optional<DDLoggerNode> node;
            changeNodes([&] { node = takeOut(nodes_, logger); });
            if (node)
                tell(*node, [](DDLogger& removed) { removed.willRemoveLogger(); });
        });
    }

    void removeAll()
    {
        Nodes known; // goes without the lock
        changeRegistered([&] { known.swap(registered_); });
        queue_.async([this] {
            Nodes gone;
            changeNodes([&] { gone.swap(nodes_); });
            for (const DDLoggerNode& node : gone)
                tell(node, [](DDLogger& removed) { removed.willRemoveLogger(); });
        });
    }

    void flush()
    {
        if (insideLogger > 0 || isOnQueueOfLogger())
            return;
        whereMemoryAllows([this] {
            queue_.sync([this] { onEveryLogger([](DDLogger& logger) { logger.flush(); }); });
        });
    }

    [[nodiscard]] bool isInsideLogger()
    {
        return insideLogger > 0 || queue_.isCurrent() || isOnQueueOfLogger();
    }

    SerialQueue& loggingQueue() { return queue_; }

private:
    using Messages = std::vector<std::shared_ptr<const DDLogMessage>>;
    using Nodes = std::vector<DDLoggerNode>;

    Hub()
    {
        nodes_.reserve(kUsualLoggerCount);
        platform::NotificationCenter::shared().addObserver(
            platform::kApplicationWillTerminateNotification,
            [this](const platform::Notification&) { flush(); });
        std::atexit([] { flushLog(); });
    }

    /// Takes the first node of a logger out of a list.
    static std::optional<DDLoggerNode> takeOut(Nodes& nodes,
                                               const std::shared_ptr<DDLogger>& logger)
    {
        const auto node = std::find_if(nodes.begin(), nodes.end(), [&](const auto& candidate) {
            return candidate.logger == logger;
        });
        if (node == nodes.end())
            return std::nullopt;
        auto taken = std::move(*node);
        nodes.erase(node);
        return taken;
    }

    template <class Change> void changeRegistered(Change change)
    {
        const platform::WholeInFork whole;
        const std::lock_guard lock(registeredMutex_);
        change();
    }

    template <class Change> static void changeNodes(Change change)
    {
        const platform::WholeInFork whole;
        change();
    }

    /// Whether the calling thread runs a task on the queue of a logger, be it one that the hub does
    /// not know of (a timer).
    [[nodiscard]] bool isOnQueueOfLogger()
    {
        if (!SerialQueue::isInsideAny())
            return false;
        const platform::WholeInFork whole;
        const std::lock_guard lock(registeredMutex_);
        return std::any_of(registered_.begin(), registered_.end(),
                           [](const auto& node) { return node.loggerQueue->isCurrent(); });
    }

    /// A message whose turn it is. A single logger that likes to gets the ones that come next, too.
    void take(const std::shared_ptr<const DDLogMessage>& message) noexcept
    {
        const bool isForOne = nodes_.size() == 1 && nodes_.front().logger->takesMessagesTogether();
        if (isForOne && keepForNext(message))
            return;
        if (together_->empty())
            return deliver(*message);
        deliverTogether();
    }

    /// @return whether the message is delivered with the next one
    bool keepForNext(const std::shared_ptr<const DDLogMessage>& message) noexcept
    {
        const bool comesMore =
            together_->size() + 1 < kMostTogether && queue_.isNextMarked(kMessageMark);
        if (!comesMore && together_->empty())
            return false;
        try {
            together_->push_back(message);
        } catch (const std::bad_alloc&) {
            deliverTogether();
            deliver(*message);
            return true;
        }
        return comesMore;
    }

    void deliver(const DDLogMessage& message) noexcept
    {
        onEveryLogger([&message](DDLogger& logger) { logger.logMessage(message); });
        queueSize_.signal();
    }

    void deliverTogether() noexcept
    {
        Messages& messages = *together_;
        if (messages.empty())
            return;
        onEveryLogger([&messages](DDLogger& logger) { logger.logMessages(messages); });
        const auto number = static_cast<long>(messages.size());
        messages.clear();
        queueSize_.signal(number);
    }

    /// Runs an operation of every logger on its queue and returns when all are done.
    ///
    /// All but the last run on their queues' own threads, side by side; the last runs inline, which
    /// saves two changes of thread for every message, and all of them when there is one logger.
    template <class Operation> void onEveryLogger(Operation operation) noexcept
    {
        greetNewcomers();
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

    /// Tells one logger something on its queue, without waiting. The task keeps both, so that
    /// nobody waits for its end who lets go of them meanwhile.
    template <class Operation> static void tell(const DDLoggerNode& node, Operation operation)
    {
        node.loggerQueue->async([node, operation] { callLogger(*node.logger, operation); });
    }

    /// In the child of a fork(): those whose addition was waiting in the parent.
    void greetNewcomers() noexcept
    {
        if (newcomers_.empty())
            return;
        whereMemoryAllows([this] {
            for (const DDLoggerNode& node : std::exchange(newcomers_, {}))
                tell(node, [](DDLogger& added) { added.didAddLogger(); });
        });
    }

    void beforeFork() override { registeredMutex_.lock(); }
    void afterForkInParent() override { registeredMutex_.unlock(); }
    /// The child begins with the loggers that were registered, and with none of the lines. What the
    /// forking thread may be in the middle of stays where it is.
    void afterForkInChild() override
    {
        registeredMutex_.unlock();
        for (const DDLoggerNode& node : registered_) {
            if (std::none_of(nodes_.begin(), nodes_.end(),
                             [&](const auto& known) { return known.logger == node.logger; }))
                newcomers_.push_back(node);
        }
        platform::keepForever(std::make_shared<Nodes>(std::exchange(nodes_, registered_)));
        platform::keepForever(std::exchange(together_, std::make_shared<Messages>()));
    }

    static constexpr const char* kMessageMark = "message";

    const unsigned processors_ = processorCount();
    std::mutex registeredMutex_;
    Nodes registered_; ///< as those have it who add and remove, and as a child shall begin
    Nodes nodes_;      ///< touched on the logging queue only
    Nodes newcomers_;  ///< of nodes_: to be told that they were added
    /// Messages that are delivered with the next one; touched on the logging queue only.
    std::shared_ptr<Messages> together_ = std::make_shared<Messages>();
    platform::QueueGroup group_;
    platform::Semaphore queueSize_{kMostQueuedMessages};
    SerialQueue queue_{"com.Stowline.logging"};
    const platform::ForkRegistration registration_{*this};
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
        whereMemoryAllows([&] { Hub::instance().add(logger); });
}

void DDLog::removeLogger(std::shared_ptr<DDLogger> logger)
{
    if (logger)
        whereMemoryAllows([&] { Hub::instance().remove(logger); });
}

void DDLog::removeAllLoggers()
{
    whereMemoryAllows([] { Hub::instance().removeAll(); });
}

void DDLog::flushLog()
{
    Hub::instance().flush();
}

bool DDLog::isInsideLogger()
{
    return Hub::instance().isInsideLogger();
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
