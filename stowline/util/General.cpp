// What needs the machine. The operations on the product and on text are in GeneralProduct.cpp, so
// that the helper program gets them without this file's libraries.
#include "stowline/util/General.h"

#include "stowline/platform/desktop/MachineIdentity.h"

#include <algorithm>

namespace stowline {

std::optional<std::string> General::uuid()
{
    (void)launchTime();
    return platform::randomUuid();
}

std::optional<std::string> General::computerName()
{
    (void)launchTime();
    return platform::computerName();
}

std::string General::localHostName()
{
    (void)launchTime();
    return platform::localHostName().value_or("Untitled System");
}

std::optional<std::string> General::hardwareId()
{
    (void)launchTime();
    return platform::hardwareUuid();
}

bool General::isScheduledLaunch()
{
    (void)launchTime();
    const auto arguments = platform::processArguments();
    return std::find(arguments.begin(), arguments.end(), "scheduled_launch") != arguments.end();
}

} // namespace stowline
