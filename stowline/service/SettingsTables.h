// The tables of the settings, for the operations: what WebServicesSettings answers, but for want of
// memory std::bad_alloc is thrown, which an operation ends with as documented.
#pragma once

#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline::settingsTables {

[[nodiscard]] const std::optional<Dictionary>& all();
[[nodiscard]] std::optional<Dictionary> templateEntry(std::string_view name);
[[nodiscard]] std::optional<Dictionary> webMethod(std::string_view name);
[[nodiscard]] std::optional<Dictionary> webRequest(std::string_view name);
[[nodiscard]] std::optional<std::string> link(std::string_view key);
[[nodiscard]] std::optional<std::string> reachabilityHost();

} // namespace stowline::settingsTables
