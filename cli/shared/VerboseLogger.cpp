#include "cli/shared/VerboseLogger.h"

#include "stowline/platform/text/Text.h"

#include <cstdio>

namespace stowline::cli {

void VerboseLogger::logMessage(const DDLogMessage& message)
{
    const auto text = formattedText(message);
    if (!text)
        return;
    const std::string line = platform::withoutControls(text->view()) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace stowline::cli
