// The web methods that the broker calls, as data.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace stowline {

/// What the settings must say about a method for the broker to use it.
struct WebMethodNeeds {
    std::string_view name;
    std::vector<std::string_view> placeholders; ///< those that the broker fills
    std::size_t urlArguments = 0;               ///< how many "%@" its "URL" has
    bool needsResultKeyPath = false;            ///< else it must have none
};

/// Every method that an operation of WebServiceBroker calls.
[[nodiscard]] std::span<const WebMethodNeeds> webMethodCatalogue();

} // namespace stowline
