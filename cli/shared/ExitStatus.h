// What the command's exit statuses mean. Scripts rely on them.
#pragma once

namespace stowline::cli {

enum class ExitStatus : int {
    done = 0,
    failed = 1,
    usage = 2,
    someItemsFailed = 3,
    notFound = 4,
    temporary = 5, ///< may be tried again
    refused = 6,   ///< by the service
    checksumMismatch = 7,
    hostUnreachable = 8,
    overdue = 9, ///< all went well, but the last good run or proof is too long ago
    settingsInvalid = 10,
    locked = 11, ///< another instance holds the lock
    signInRefused = 12,
    interrupted = 130,
    terminated = 143,
};

} // namespace stowline::cli
