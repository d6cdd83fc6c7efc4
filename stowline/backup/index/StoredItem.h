// An item as the index and the records hold it: what it was like, and where its content is.
#pragma once

#include "stowline/backup/tree/ItemRecord.h"

#include <cstdint>
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// Where the content of a file is on the service, and how it is to be read.
struct StoredContent {
    std::string version; ///< the service's number of the version ("X-VersionID"); empty: not told
    std::string list;    ///< names the version in a deletion ("X-ListID"); empty: not told
    std::string digest;  ///< SHA-256 of the file's bytes, 64 lower-case hexadecimal digits
    std::uint32_t checksum = 0;   ///< CRC-32 of what was sent
    std::uint64_t storedSize = 0; ///< bytes on the service
    std::string kind = "plain";   ///< how the bytes were changed on their way; "plain": not at all
    std::string key;              ///< which key opens it; empty: none is needed
    std::string baseline;         ///< the version that a difference builds on; empty: none
    std::uint64_t run = 0;        ///< the run that stored it

    bool operator==(const StoredContent&) const = default;
};

struct StoredItem {
    ItemRecord item;
    /// Of files with content. Absent for all other kinds, for further names of a hard link (which
    /// have `sameFileAs`), and for a file of which no content was ever stored.
    std::optional<StoredContent> content;
    /// The first name of a hard link whose further name this is; empty for all else.
    std::string sameFileAs;
    /// When the reading of the content began. A stamp of the item that is later than two seconds
    /// before it is unsettled: the item is read again.
    Timestamp readBegan;
    bool isStale = false;          ///< carried forward: this run could not look at it
    bool changedWhileRead = false; ///< stored, but mixing several states of the file

    bool operator==(const StoredItem&) const = default;
};

} // namespace stowline::backup
#pragma GCC visibility pop
