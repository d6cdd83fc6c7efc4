// What a record says of its run before it names the items.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/RunLoss.h"
#include "stowline/backup/tree/ItemRecord.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

enum class RecordState {
    begun,      ///< a note that a run has begun; no items
    unfinished, ///< the tree as far as a long run had come
    finished,   ///< the tree as the run found it
    forgotten,  ///< a note that the run is forgotten, whatever else there is of it; no items
};

/// A record by its number and the SHA-256 of its stored bytes (64 lower-case hexadecimal digits).
struct RecordLink {
    std::uint64_t run = 0; ///< 0: none
    std::string digest;
    bool operator==(const RecordLink&) const = default;
};

/// What the difference records since a full one come to; decides when the next full one is due.
struct DifferenceCount {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    std::uint64_t fullBytes = 0; ///< of the full record
    bool operator==(const DifferenceCount&) const = default;
};

/// What a run knows of itself when it begins. A plain value.
struct RunDescription {
    std::string username;
    std::string systemName;
    std::string host; ///< the machine's host name, for people
    ChainIdentity identity;
    std::vector<std::string> namedPaths;
    std::vector<std::string> rules; ///< as the user gave them: "exclude *.o"
    std::string clientVersion;
    std::string key; ///< which key seals content from this run on; empty: none
    Timestamp begun;
    bool operator==(const RunDescription&) const = default;
};

/// The first line of a record.
struct RecordHead {
    std::uint64_t run = 0;
    RecordState state = RecordState::begun;
    RunDescription description;
    std::optional<Timestamp> ended;     ///< when the record was written; absent while begun
    std::optional<RecordLink> baseline; ///< of a difference: what it differs from; absent: full
    RecordLink predecessor;             ///< the newest finished record when the run began
    DifferenceCount differences;        ///< since the full record, this one not counted
    // What the run came to, for lists of runs; 0 while begun.
    std::uint64_t items = 0;
    std::uint64_t failed = 0;   ///< items that could not be looked at, read or stored
    std::uint64_t newBytes = 0; ///< of content stored by it
    std::uint64_t bytes = 0;    ///< of all content
    /// What it and earlier runs found gone, so much that it holds forgetting back, and nobody has
    /// confirmed yet; the oldest first.
    std::vector<RunLoss> losses = {};
    bool operator==(const RecordHead&) const = default;
};

/// "00000012-begun", "00000012-unfinished-03", "00000012-finished", "00000012-forgotten".
struct RecordName {
    std::uint64_t run = 0;
    RecordState state = RecordState::begun;
    std::uint32_t part = 0; ///< of an unfinished one, from 1 to 99; 0 for the others
    auto operator<=>(const RecordName&) const = default;
};
[[nodiscard]] std::string recordNameText(const RecordName& name);
/// @return absent for every other text
[[nodiscard]] std::optional<RecordName> parseRecordName(std::string_view text);

/// The folder of a chain: machine, user and profile joined by ".". A user or profile with other
/// characters than letters, digits, "_" and "-" is "=b64=" and its Base64 (RFC 4648 section 5).
[[nodiscard]] std::string chainName(const ChainIdentity& identity);
/// @return absent for every other text
[[nodiscard]] std::optional<ChainIdentity> parseChainName(std::string_view name);

} // namespace stowline::backup
