// Dates as people in the United States write them, whatever the machine's language.
#pragma once

#include "stowline/platform/time/Date.h"

#include <memory>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Writes moments by a pattern (Unicode TR 35, "yyyy-MM-dd HH:mm:ss") in the locale en_US, the
/// Gregorian calendar and the process's time zone (TZ, else that of the machine). For one thread.
class DateFormatter {
public:
    explicit DateFormatter(const std::string& pattern);
    ~DateFormatter();
    DateFormatter(DateFormatter&&) noexcept;
    DateFormatter& operator=(DateFormatter&&) noexcept;

    [[nodiscard]] std::string stringFromDate(Date moment) const;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace stowline::platform
#pragma GCC visibility pop
