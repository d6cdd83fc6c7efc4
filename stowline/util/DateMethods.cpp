#include "stowline/util/DateMethods.h"

#include "stowline/platform/time/LocalTime.h"

namespace stowline::DateMethods {

std::string TW_ISO8601DateTimeFromDate(Date date)
{
    return platform::textOf(platform::localTime(date));
}

} // namespace stowline::DateMethods
