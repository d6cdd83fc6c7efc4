// Which run of which machine, and how reading it went.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/tree/ItemRecord.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// A run to read from. A plain value.
struct RunChoice {
    Account account; ///< its systemName is that of the machine whose runs are read
    /// Whose chain is read. Where it has none under the machine's name, the only one of its profile
    /// is. Absent: there must be only one.
    std::optional<ChainIdentity> identity;
    /// A chain by its name, as RunOrigin has it, whatever the identity; empty: by that.
    std::string chain;
    /// Where the backups of this user on this machine keep their state: tells which run the machine
    /// has seen. It is only looked at, but that what was found to be lost is noted there. Absent,
    /// or nothing there: the machine has seen none.
    std::optional<std::filesystem::path> stateFolder;
    std::optional<std::uint64_t> run; ///< by number
    std::optional<Timestamp> at;      ///< the finished one of the highest number that began by then
    // Neither: the newest finished one.
    /// How long to try one question or one part again.
    std::chrono::steady_clock::duration budgetPerStep = std::chrono::minutes(5);
};

/// What a run could not back up, as its record tells it.
struct RunLack {
    std::uint64_t failed = 0;         ///< items that the run could not look at, read or store
    std::uint64_t carriedForward = 0; ///< items of its record that are as an earlier run saw them
    /// Items of which it holds nothing, for no run could look at, read or store them since.
    std::uint64_t neverStored = 0;
    /// Folders that were to be backed up by a run that was cut off, and by no whole one since: what
    /// it holds of them may be incomplete, or of two states.
    std::uint64_t cutOff = 0;
    /// What its rules left out, as far as records name it: folders, what is mounted, hidden items.
    std::uint64_t leftOut = 0;
};

/// What is known of a record besides that it is whole and of this chain.
enum class RecordTrust {
    seen,   ///< it is the one that this machine stored, or read before
    linked, ///< the later records name it, from the newest that this machine has seen, or that the
            ///< service shows
    newest, ///< it is the newest that the service shows, and newer than any that this machine has
            ///< seen: only people can compare its digest
    unproven, ///< neither: between it and the later ones a record is missing, or it was not
              ///< finished
};

/// The name of a trust in output: "seen".
[[nodiscard]] const char* nameOf(RecordTrust trust);

/// What was read, for people to compare and for scripts.
struct RunOrigin {
    std::string chain;     ///< machine, user and profile, joined by "."
    std::uint64_t run = 0; ///< 0: none was read
    std::string digest;    ///< SHA-256 of the run's record, hexadecimal; empty: not read whole
    RecordTrust trust = RecordTrust::unproven; ///< of that record
    /// The other chains under the machine's name, where this one is that of the identity.
    std::vector<std::string> otherChains;
    RunLack lack; ///< of the run that was read; nothing where none was read whole
    /// Sentences that people should know: whose chain it is when it was not named and is not this
    /// user's on this machine, that there are others, that the service shows an older state, that
    /// the record is unproven and why, that something failed in the run.
    std::vector<std::string> notes;
};

/// How reading runs ended.
enum class ReadEnd {
    done,
    someFailed,    ///< what did not is there
    badContent,    ///< content or a record is not what was stored, or is gone
    notFound,      ///< no such run, or nothing that was named is in it
    severalChains, ///< several share the machine's name, and none of them was chosen
    rolledBack,    ///< the service shows older records, or others, than this machine has seen
    interrupted,
    temporary,     ///< the service did not answer until the time was used up
    refused,       ///< the service said no
    notConfigured, ///< the settings do not say how content is read
    failed,        ///< anything else
};

} // namespace stowline::backup
#pragma GCC visibility pop
