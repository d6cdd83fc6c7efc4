// Names of users and groups by their numbers.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace stowline::platform {

/// Asks the user database once for each number. One thread at a time.
class AccountNames {
public:
    /// Empty when the number has no name.
    [[nodiscard]] const std::string& userName(std::uint32_t number);
    [[nodiscard]] const std::string& groupName(std::uint32_t number);

private:
    std::map<std::uint32_t, std::string> users_;
    std::map<std::uint32_t, std::string> groups_;
};

} // namespace stowline::platform
