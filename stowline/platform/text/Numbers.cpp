#include "stowline/platform/text/Numbers.h"

namespace stowline::platform {

std::optional<double> realNumber(std::string_view text)
{
    double number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

} // namespace stowline::platform
