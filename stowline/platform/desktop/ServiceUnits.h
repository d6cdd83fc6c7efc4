// A daily run by the user's own service manager (systemd): its units, as text and as files.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// What is to run each day.
struct DailyRun {
    std::string description;          ///< one line for people
    std::vector<std::string> command; ///< program, a whole path, and its arguments
    std::vector<std::pair<std::string, std::string>> variables; ///< set for the command
    int hour = 0;                                               ///< local time
    int minute = 0;
    bool onMainsOnly = false; ///< not while the machine runs on its battery
};

/// The texts of the two units.
struct UnitTexts {
    std::string service;
    std::string timer;
};

/// A word as it stands in a unit's command line, quoted, so that the service manager gives the
/// program these very bytes: nothing is expanded, no quotation mark ends it (systemd.service(5),
/// "Command lines", and systemd.syntax(7), "Quoting").
/// @return absent for what a unit cannot hold: a text that is not UTF-8, or has a NUL
[[nodiscard]] std::optional<std::string> unitWord(std::string_view word);

/// The units of a run: at its time or, where the machine was off, as soon as it is on again; up to
/// five minutes later by chance; with little of the processor and the disk.
/// @return absent when the command or a variable cannot stand in a unit
[[nodiscard]] std::optional<UnitTexts> unitTexts(const DailyRun& run);

/// The name of such a run's units, without ".service" and ".timer": letters, digits, "_" and "."
/// stay as they are, every other byte is "\x" and two digits, as systemd-escape(1) has it.
/// @return absent when it were too long for a file's name
[[nodiscard]] std::optional<std::string> unitName(const std::string& prefix,
                                                  std::string_view instance);

/// Whose units with names of such a prefix UserUnits::write() has written, in the order of bytes.
[[nodiscard]] std::vector<std::string> instancesOfUnits(const std::string& prefix);

/// The units of one name in the user's folder of units, and the service manager that runs them.
/// Every operation may block for half a minute. Any thread.
class UserUnits {
public:
    explicit UserUnits(std::string name) : name_(std::move(name)) {}

    /// Whether the user's service manager answers. It does not in a container or a session that
    /// has none; what systemctl says of that is on standard error.
    [[nodiscard]] static bool isManagerThere();

    /// The unit's file; absent when there is no home folder.
    [[nodiscard]] std::optional<std::filesystem::path> file(const std::string& kind) const;

    /// Whether both files are there and were written by write().
    [[nodiscard]] bool areOurs() const;
    /// Whether a file is there that write() did not write.
    [[nodiscard]] bool isForeign() const;

    /// What the files hold. @return absent unless both are there and were written by write()
    [[nodiscard]] std::optional<UnitTexts> texts() const;
    /// Writes both files, over earlier ones of ours. @return false when either cannot be written
    [[nodiscard]] bool write(const UnitTexts& texts) const;
    /// Has the service manager read the files and start the timer, now and at each start of the
    /// user's session. @return whether the timer runs, by the manager's own word
    [[nodiscard]] bool enable() const;
    /// Whether the timer runs, by the manager's own word.
    [[nodiscard]] bool isActive() const;
    /// A property of the timer, as the manager prints it; empty when it has none.
    [[nodiscard]] std::string property(const std::string& property) const;

    /// Takes away what write() and enable() made. @return false when something of it is left
    [[nodiscard]] bool remove() const;

private:
    std::string name_;
};

} // namespace stowline::platform
#pragma GCC visibility pop
