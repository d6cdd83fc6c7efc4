// What reading stored content comes to: a ticket, and a part of a version.
#pragma once

#include "stowline/platform/text/Data.h"

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)
namespace stowline {

/// Leave to read the content of one account for some time. A secret: it is not logged, not kept on
/// disk, and goes to no server but the one that gave it.
struct RestoreTicket {
    std::string text;
    std::int64_t secondsToLive = 0; ///< from when it was given; above 0
};

/// What asking for a part came to.
enum class FilePartOutcome {
    read,           ///< the bytes are there, and their checksum is the one that was sent along
    ticketRefused,  ///< unknown, run out, revoked or another account's: a new one may help
    noSuchVersion,  ///< the account has no such version
    contentMissing, ///< the version is registered, its content is gone
    contentDamaged, ///< what the service holds is not what was registered
    outOfRange,     ///< the part would begin after the end of the version
    refused,        ///< the service says no for a reason of its own, see FilePart::reason
    garbled,       ///< an answer whose checksum, size or length is not that of its bytes: ask again
    failed,        ///< no answer, or one that is none to this question: the error slot says why
    notConfigured, ///< the settings do not say how content is read
};

/// A part of a version, or why there is none.
struct FilePart {
    FilePartOutcome outcome = FilePartOutcome::failed;
    Data bytes;                    ///< empty unless read
    std::uint32_t checksum = 0;    ///< CRC-32 of the bytes, as sent and as found
    std::uint64_t versionSize = 0; ///< bytes that the service holds of the version
    std::string versionDigest;     ///< SHA-256 of those, 64 hexadecimal digits; empty when not told
    std::string reason;            ///< the service's code when it says no, as "NoSuchVersion"
};

} // namespace stowline
#pragma GCC visibility pop
