#include "stowline/logging/DDTTYLogger.h"

#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/processes/StandardStreams.h"
#include "stowline/platform/processes/Terminal.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/LocalClock.h"

#include <array>

namespace stowline {

std::shared_ptr<DDTTYLogger> DDTTYLogger::sharedInstance()
{
    // Never destroyed: static destructors may still log.
    static auto& instance = *new std::shared_ptr<DDTTYLogger>(new DDTTYLogger);
    return instance;
}

std::shared_ptr<DDTTYLogger> DDTTYLogger::init()
{
    (void)sharedInstance();
    return nullptr;
}

DDTTYLogger::DDTTYLogger()
    : DDAbstractLogger("com.Stowline.logging.ttyLogger"),
      isaTTY_(platform::standardErrorIsTerminal())
{
    if (!isaTTY_)
        return;
    app_ = platform::processName();
    pid_ = std::to_string(platform::processNumber());
}

void DDTTYLogger::logMessage(const DDLogMessage& message)
{
    if (!isaTTY_)
        return;
    const auto text = formattedText(message);
    if (!text)
        return;
    const std::string shown = platform::withoutControls(text->view());
    if (!text->isMessagesOwn()) {
        platform::writeGatheredToStandardError(std::array<std::string_view, 2>{shown, "\n"});
        return;
    }
    const std::string time = platform::localClockText(message.timestamp);
    platform::writeGatheredToStandardError(std::array<std::string_view, 10>{
        time, " ", app_, "[", pid_, ":", message.threadID(), "] ", shown, "\n"});
}

} // namespace stowline
