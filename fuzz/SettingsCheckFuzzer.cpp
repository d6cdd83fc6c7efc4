// Exercises the check of a settings file: any bytes give faults or none, never anything else.
#include "stowline/service/SettingsCheck.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    (void)stowline::checkSettings({reinterpret_cast<const char*>(bytes), size});
    return 0;
}
