// A desktop whose settings name a proxy.
#pragma once

#include <chrono>
#include <string>

namespace stowline::test {

/// From now on the desktop of this process names this proxy for every address, after a while.
/// Before anything has asked for one.
void setDesktopProxy(const std::string& proxy, std::chrono::milliseconds after = {});

/// How often it was asked.
[[nodiscard]] int desktopProxyQuestions();

} // namespace stowline::test
