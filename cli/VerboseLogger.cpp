#include "cli/VerboseLogger.h"

#include <algorithm>
#include <cstdio>

namespace stowline::cli {

void VerboseLogger::logMessage(const DDLogMessage& message)
{
    auto text = formattedText(message);
    if (!text)
        return;
    std::replace_if(
        text->begin(), text->end(),
        [](unsigned char c) { return (c < ' ' && c != '\n' && c != '\t') || c == 0x7f; }, '?');
    text->push_back('\n');
    std::fwrite(text->data(), 1, text->size(), stderr);
}

} // namespace stowline::cli
