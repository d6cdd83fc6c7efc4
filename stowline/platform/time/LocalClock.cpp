#include "stowline/platform/time/LocalClock.h"

#include "stowline/platform/threads/ForkSafety.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <limits>

namespace stowline::platform {

namespace {

/// The last second that this thread has written, all but the milliseconds.
struct WrittenSecond {
    std::int64_t second = std::numeric_limits<std::int64_t>::min();
    char separator = 0;
    std::array<char, 64> text{};
    std::size_t length = 0;
};

void write(WrittenSecond& written, std::int64_t second, char separator)
{
    const std::time_t time = second;
    std::tm parts{};
    {
        const LibraryCall call(LibraryCall::To::timeZone);
        ::tzset(); // localtime_r() does not look for a new zone by itself
        ::localtime_r(&time, &parts);
    }
    const int length = std::snprintf(written.text.data(), written.text.size(),
                                     "%04d%c%02d%c%02d %02d:%02d:%02d:", parts.tm_year + 1900,
                                     separator, parts.tm_mon + 1, separator, parts.tm_mday,
                                     parts.tm_hour, parts.tm_min, parts.tm_sec);
    written.second = second;
    written.separator = separator;
    written.length = static_cast<std::size_t>(length);
}

} // namespace

std::string localClockText(Date moment, char dateSeparator)
{
    thread_local WrittenSecond written;
    const auto whole = std::chrono::floor<std::chrono::seconds>(moment);
    const std::int64_t second = whole.time_since_epoch().count();
    if (second != written.second || dateSeparator != written.separator)
        write(written, second, dateSeparator);
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(moment - whole).count();
    std::string text(written.text.data(), written.length);
    text.push_back(static_cast<char>('0' + milliseconds / 100));
    text.push_back(static_cast<char>('0' + milliseconds / 10 % 10));
    text.push_back(static_cast<char>('0' + milliseconds % 10));
    return text;
}

} // namespace stowline::platform
