// Users and groups of this machine: names by numbers, and numbers by names.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace stowline::platform {

/// The user that this process acts as.
[[nodiscard]] std::uint32_t ownUserNumber();

/// The names of a user's and of a group's number; absent when it has none.
[[nodiscard]] std::optional<std::string> userName(std::uint32_t number);
[[nodiscard]] std::optional<std::string> groupName(std::uint32_t number);

/// Numbers of a user and of a group on this machine; absent when it has none of that name.
[[nodiscard]] std::optional<std::uint32_t> userNumber(const std::string& name);
[[nodiscard]] std::optional<std::uint32_t> groupNumber(const std::string& name);

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
