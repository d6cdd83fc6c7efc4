// Choosing a run, and ending with what reading it came to.
#pragma once

#include "cli/shared/Output.h"
#include "cli/shared/Session.h"
#include "stowline/backup/RunChoice.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace stowline::cli {

/// A run by its number ("12") or a moment: "2026-01-31" (the end of that day), with a time of day
/// "2026-01-31 18:30" or "…:15", in the local zone, with "Z" in universal time; "T" may stand for
/// the blank. Also as times are shown: "2026-01-31 18:30:15 CET", in no other zone than the local
/// one and UTC. @return absent for every other text
using RunOrMoment = std::variant<std::uint64_t, backup::Timestamp>;
[[nodiscard]] std::optional<RunOrMoment> parseRunOrMoment(const std::string& text);

/// --profile and --chain.
class ChainOptions {
public:
    void declare(const Command& command);
    /// Sets whose chain is meant, and what this machine knows of it.
    void choose(backup::RunChoice& choice) const;

private:
    std::string profile_ = "default";
    std::string chain_;
};

/// --at, for commands that can show what is stored now as well.
void declareAt(const Command& command, std::string& at);

/// The options of every command that reads a run.
class RunOptions {
public:
    /// @param machineOption "--machine" or "--system"
    void declare(const Command& command, const std::string& machineOption);
    /// --at, for commands that read one run.
    void declareAt(const Command& command);

    [[nodiscard]] bool isAtGiven() const { return !at_.empty(); }

    /// Signs in. Says what goes wrong.
    [[nodiscard]] Result<backup::RunChoice> open() const;

private:
    SessionOptions session_;
    ChainOptions chain_;
    std::string machine_;
    std::string at_;
    double retrySeconds_ = 300;
};

/// The same for a command that has its session options already.
[[nodiscard]] Result<backup::RunChoice> runChoiceFor(const Session& session,
                                                     const std::string& machine,
                                                     const std::string& at,
                                                     const ChainOptions& chain);

/// The exit status of an end. Interrupted: as the user asked for it.
[[nodiscard]] ExitStatus statusOf(backup::ReadEnd end);

/// What the engine says of an end, with the option that cures it.
[[nodiscard]] std::string sentenceFor(backup::ReadEnd end, const std::string& sentence);

/// Says what people should know of what was read.
void noteOrigin(const backup::RunOrigin& origin);
/// "chain" and "record", and of a run that was read lackFields().
[[nodiscard]] Fields originFields(const backup::RunOrigin& origin);
/// "run_failed", "carried_forward", "never_stored", "cut_off", "left_out", each behind a prefix.
[[nodiscard]] Fields lackFields(const backup::RunLack& lack, const std::string& prefix = {});
/// "Run 12 (record 1a2b3c4d5e6f)".
[[nodiscard]] std::string runText(const backup::RunOrigin& origin);

/// Ends the output for an operation that is done, or says why it is not; what was read is said too.
[[nodiscard]] ExitStatus finishReading(backup::ReadEnd end, const std::string& sentence,
                                       const backup::RunOrigin& origin);

/// A moment for people, in the local zone, and as JSON has it (universal time).
[[nodiscard]] std::string momentText(const backup::Timestamp& moment);
[[nodiscard]] std::string momentField(const backup::Timestamp& moment);

/// A stored path as the user may give it, relative to the current folder or absolute.
[[nodiscard]] std::string storedPathFor(const std::string& given);

} // namespace stowline::cli
