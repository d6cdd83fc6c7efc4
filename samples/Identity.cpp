// What the library can tell of the machine and of the program that hosts it.
#include "stowline/util/General.h"

#include <iostream>

int main()
{
    using stowline::General;
    std::cout << "product:     " << General::productName().value_or("(none)") << " "
              << General::productVersion().value_or("(none)") << "\n"
              << "user agent:  " << General::userAgent() << "\n"
              << "computer:    " << General::computerName().value_or("(none)") << "\n"
              << "local host:  " << General::localHostName() << "\n"
              << "hardware id: " << General::hardwareId().value_or("(none)") << "\n"
              << "started by a schedule: " << (General::isScheduledLaunch() ? "yes" : "no") << "\n";
}
