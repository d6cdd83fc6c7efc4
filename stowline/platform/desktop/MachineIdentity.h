// Who this machine and this process are.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::platform {

/// A random UUID (RFC 4122 version 4), upper case, 8-4-4-4-12; absent when the system has no
/// randomness to give.
[[nodiscard]] std::optional<std::string> randomUuid();

/// Whether a text has the form of one, in either case of letters.
[[nodiscard]] bool isUuid(std::string_view text);

/// A UUID in the same form that is always the same for one purpose and text (HMAC-SHA-256), and
/// from which the text cannot be had.
[[nodiscard]] std::string derivedUuid(std::string_view purpose, std::string_view text);

/// The name people gave the machine (PRETTY_HOSTNAME of /etc/machine-info), else its host name.
[[nodiscard]] std::optional<std::string> computerName();

/// The first label of the host name; absent when the host has none or only "localhost".
[[nodiscard]] std::optional<std::string> localHostName();

/// The files that hardwareUuid() asks, for tests to replace.
struct IdentitySources {
    std::vector<std::filesystem::path> machineIdFiles{"/etc/machine-id",
                                                      "/var/lib/dbus/machine-id"};
    /// Where an identity is kept for machines that have none (many containers). Absent: not kept.
    std::optional<std::filesystem::path> keptIdentity;

    /// The system's files, and "installation-id" in the state folder of the user.
    static IdentitySources ofThisMachine();
};

/// A UUID text (upper case, 8-4-4-4-12) that stays the same over restarts and is the same for every
/// user of the machine. It is made by a keyed hash (HMAC-SHA-256) of the machine's id, so the id,
/// which must not leave the machine (machine-id(5)), cannot be had from it.
/// A machine without an id gets one made at random and kept in a file; absent when that fails too.
[[nodiscard]] std::optional<std::string>
hardwareUuid(const IdentitySources& sources = IdentitySources::ofThisMachine());

/// Words of this process's command line, the program name first, read anew on each call.
[[nodiscard]] std::vector<std::string> processArguments();

/// The name of this process's program, without folders, and the process's number.
[[nodiscard]] std::string processName();
[[nodiscard]] int processNumber();

} // namespace stowline::platform
