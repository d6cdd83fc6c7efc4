// A message bus of a test's own, with services that stand in for those of a desktop.
#pragma once

#include "tests/support/Program.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stowline::test {

/// A real dbus-daemon, which ends with this.
class PrivateBus {
public:
    /// Whether one is installed; a test without it is skipped, and says so.
    [[nodiscard]] static bool isInstalled();

    PrivateBus();
    [[nodiscard]] const std::string& address() const { return address_; }

private:
    TemporaryFolder folder_;
    std::optional<BackgroundProgram> daemon_;
    std::string address_;
};

/// A service on it: one object with one interface. Throws when it cannot be had.
class BusService {
public:
    /// @param name of service and interface; the object is at "/" and the name with slashes
    /// @param members of the interface, in the form of D-Bus introspection data
    /// @param numbers values of its properties, which are of type u
    BusService(const PrivateBus& bus, const std::string& name, const std::string& members,
               std::map<std::string, std::uint32_t> numbers = {});
    ~BusService();
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    /// The calls so far, as text: "Notify('Stowline', 0, …)". Each is answered with the number 1.
    [[nodiscard]] std::vector<std::string> calls() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

/// The notification service of a desktop.
[[nodiscard]] std::unique_ptr<BusService> notificationService(const PrivateBus& bus);

/// NetworkManager, for a system bus.
/// @param metered as its property "Metered": 1 yes, 2 no, 3 probably, 4 probably not
[[nodiscard]] std::unique_ptr<BusService> networkManager(const PrivateBus& bus,
                                                         std::uint32_t metered);

} // namespace stowline::test
