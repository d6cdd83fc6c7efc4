#include "stowline/logging/CountingLogger.h"

#include <algorithm>

namespace stowline {

CountingLogger::CountingLogger(Keep keep) : DDAbstractLogger("CountingLogger"), keep_(keep) {}

void CountingLogger::logMessage(const DDLogMessage& message)
{
    if (keep_ == Keep::texts) {
        const auto text = formattedText(message);
        if (!text)
            return;
        const std::lock_guard lock(mutex_);
        lines_.push_back({std::string(text->view()), message.logFlag,
                          std::string(message.methodName().value_or("")), message.queueLabel,
                          std::string(message.fileName())});
    }
    count_.fetch_add(1, std::memory_order_relaxed);
}

std::vector<CountingLogger::Line> CountingLogger::lines() const
{
    const std::lock_guard lock(mutex_);
    return lines_;
}

bool CountingLogger::hasLine(std::string_view text) const
{
    const auto all = lines();
    return std::any_of(all.begin(), all.end(),
                       [text](const Line& line) { return line.text == text; });
}

} // namespace stowline
