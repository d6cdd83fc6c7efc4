// A name service that takes questions and answers none.
#pragma once

#include "tests/support/MountNamespace.h"

#include <chrono>
#include <optional>
#include <string>

namespace stowline::test {

/// Puts this process into a network of its own, with loopback alone, where every name is asked of a
/// server that is silent for 90 seconds; names of its file of hosts are known when that is wanted.
/// Before the process has threads.
class SilentNames {
public:
    /// @param services of /etc/nsswitch.conf
    explicit SilentNames(const std::string& services = "dns");
    ~SilentNames();
    SilentNames(const SilentNames&) = delete;
    SilentNames& operator=(const SilentNames&) = delete;

    /// Why that cannot be done here; absent when it is done.
    [[nodiscard]] const std::optional<std::string>& missing() const { return missing_; }

    /// Takes the next question. @return whether one came in that time
    [[nodiscard]] bool isAsked(std::chrono::milliseconds within = std::chrono::seconds(10)) const;

private:
    std::optional<std::string> missing_;
    struct Settings {
        Mount etc = Mount::memory("/etc");
    };
    std::optional<Settings> settings_;
    int socket_ = -1;
};

} // namespace stowline::test
