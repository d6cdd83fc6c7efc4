#include "stowline/platform/text/SystemErrorText.h"

#include <system_error>

namespace stowline::platform {

std::string systemErrorText(int error)
{
    return std::generic_category().message(error);
}

} // namespace stowline::platform
