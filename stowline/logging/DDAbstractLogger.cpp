#include "stowline/logging/DDAbstractLogger.h"

#include "stowline/logging/DDLog.h"
#include "stowline/logging/LoggerGuard.h"

#include <mutex>

namespace stowline {

std::shared_ptr<DDLogFormatter> DDAbstractLogger::FormatterSlot::get()
{
    const std::lock_guard lock(mutex);
    return formatter;
}

void DDAbstractLogger::FormatterSlot::set(std::shared_ptr<DDLogFormatter> newFormatter)
{
    const std::lock_guard lock(mutex);
    formatter.swap(newFormatter); // the old one goes after the lock
}

DDAbstractLogger::DDAbstractLogger(std::string loggerName)
    : name_(std::move(loggerName)), slot_(std::make_shared<FormatterSlot>()),
      queue_(std::make_shared<platform::SerialQueue>(name_))
{
}

void DDAbstractLogger::logMessage(const DDLogMessage&) {}

std::shared_ptr<DDLogFormatter> DDAbstractLogger::logFormatter()
{
    std::shared_ptr<DDLogFormatter> formatter;
    readInTurn([&] { formatter = slot_->get(); });
    return formatter;
}

void DDAbstractLogger::setLogFormatter(std::shared_ptr<DDLogFormatter> formatter)
{
    changeInTurn([slot = slot_, formatter = std::move(formatter)] { slot->set(formatter); });
}

void DDAbstractLogger::readInTurn(const std::function<void()>& read)
{
    if (queue_->isCurrent() || DDLog::isInsideLogger())
        read();
    else
        DDLog::loggingQueue().sync(read);
}

void DDAbstractLogger::changeInTurn(platform::SerialQueue::Task change)
{
    if (queue_->isCurrent())
        return guarded(name_, change);
    whereMemoryAllows([&] {
        DDLog::loggingQueue().async(
            [name = name_, change = std::move(change)]() mutable { guarded(name, change); });
    });
}

std::shared_ptr<platform::SerialQueue> DDAbstractLogger::loggerQueue()
{
    return queue_;
}

std::string DDAbstractLogger::loggerName() const
{
    return name_;
}

std::optional<LogText> DDAbstractLogger::formattedText(const DDLogMessage& message)
{
    const auto formatter = slot_->get();
    return formatter ? formatter->formatLogMessage(message) : std::optional(LogText(message));
}

} // namespace stowline
