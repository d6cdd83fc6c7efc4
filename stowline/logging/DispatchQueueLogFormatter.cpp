#include "stowline/logging/DispatchQueueLogFormatter.h"

#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/LocalClock.h"

#include <algorithm>
#include <mutex>

namespace stowline {

namespace {

constexpr std::int32_t kShortest = 4;
constexpr std::int32_t kLongest = 35;

std::string fitted(const std::string& name, std::size_t length, bool rightAlign)
{
    const std::size_t characters = platform::characterCount(name);
    if (characters <= length) {
        const std::string padding(length - characters, ' ');
        return rightAlign ? padding + name : name + padding;
    }
    if (!rightAlign)
        return name.substr(0, platform::offsetOfCharacter(name, length));
    return name.substr(platform::offsetOfCharacter(name, characters - length));
}

} // namespace

DispatchQueueLogFormatter::DispatchQueueLogFormatter()
    : replacements_{{"com.apple.main-thread", "main"}}
{
}

std::int32_t DispatchQueueLogFormatter::queueLength() const
{
    const std::lock_guard lock(mutex_);
    return queueLength_;
}

void DispatchQueueLogFormatter::setQueueLength(std::int32_t length)
{
    const std::lock_guard lock(mutex_);
    queueLength_ = std::clamp(length, kShortest, kLongest);
}

bool DispatchQueueLogFormatter::rightAlign() const
{
    const std::lock_guard lock(mutex_);
    return rightAlign_;
}

void DispatchQueueLogFormatter::setRightAlign(bool rightAlign)
{
    const std::lock_guard lock(mutex_);
    rightAlign_ = rightAlign;
}

std::optional<std::string>
DispatchQueueLogFormatter::replacementStringForQueueLabel(std::string_view label) const
{
    const std::lock_guard lock(mutex_);
    const auto found = replacements_.find(label);
    return found == replacements_.end() ? std::nullopt : std::optional(found->second);
}

void DispatchQueueLogFormatter::setReplacementString(std::optional<std::string> name,
                                                     std::string_view forQueueLabel)
{
    const std::lock_guard lock(mutex_);
    if (name)
        replacements_.insert_or_assign(std::string(forQueueLabel), std::move(*name));
    else if (const auto found = replacements_.find(forQueueLabel); found != replacements_.end())
        replacements_.erase(found);
}

std::optional<LogText> DispatchQueueLogFormatter::formatLogMessage(const DDLogMessage& message)
{
    std::string name = message.queueLabel ? *message.queueLabel : message.threadID();
    std::size_t length = 0;
    bool rightAligned = false;
    {
        const std::lock_guard lock(mutex_);
        length = static_cast<std::size_t>(queueLength_);
        rightAligned = rightAlign_;
        const auto found = message.queueLabel ? replacements_.find(name) : replacements_.end();
        if (found != replacements_.end())
            name = found->second;
    }
    return LogText(platform::localClockText(message.timestamp) + " [" +
                   fitted(name, length, rightAligned) + "] " + message.logMsg);
}

} // namespace stowline
