// Finding a run on the service and reading its tree.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"
#include "stowline/backup/restore/Sights.h"
#include "stowline/backup/transfer/ContentSource.h"
#include "stowline/backup/transfer/Tries.h"

#include <functional>
#include <string>

namespace stowline::backup {

/// What reading goes through; one for each operation. Throws RecordFault and IndexFault; the
/// operations of source() are for any thread.
class RunReader {
public:
    RunReader(const RunChoice& choice, std::uint64_t bytesPerSecond, std::uint64_t partBytes,
              const StopRequest& stop);

    /// The chain that the choice means.
    [[nodiscard]] RecordChain openChain();

    /// Throws rolledBack when the service shows an older state than this machine has seen. A run
    /// that was chosen by its number is what it is: that is noted then.
    void requireNothingOlder(const RecordChain& chain, bool isRunNamed);

    /// The number of the chosen run.
    [[nodiscard]] std::uint64_t chosenRun(RecordChain& chain);

    /// The tree of the chosen run.
    struct Tree {
        RecordHead head;
        ItemIndex items;
        Sights sights = {}; ///< from when its items are
    };
    [[nodiscard]] Tree readChosen();

    /// What is known of a run's record, which is noted for people where nothing proves it.
    [[nodiscard]] RecordTrust trustIn(RecordChain& chain, std::uint64_t run);

    /// From when the items of a run are.
    [[nodiscard]] static Sights sightsIn(RecordChain& chain, const RecordHead& head,
                                         const ItemIndex& items);

    /// Notes for people what a run was not told to back up, at and below paths, and from when it
    /// is.
    void noteSights(const Sights& sights, const std::vector<std::string>& paths);

    /// What a run could not back up, which is noted for people too.
    [[nodiscard]] RunLack lackOf(const RecordHead& head, const ItemIndex& items);

    /// Notes for people what the rules of a run left out at and below paths.
    void noteLeftOut(const RecordHead& head, const ItemIndex& items,
                     const std::vector<std::string>& paths);

    /// Notes for people when the run that was read is forgotten by now, for where something of it
    /// is missing. What cannot be asked is not noted.
    void noteIfForgotten();

    /// Adds a sentence that people should know of what was read.
    void note(std::string sentence) { origin_.notes.push_back(std::move(sentence)); }

    /// What was read so far.
    [[nodiscard]] const RunOrigin& origin() const { return origin_; }
    /// The same, at the end.
    [[nodiscard]] RunOrigin takeOrigin() noexcept { return std::move(origin_); }

    [[nodiscard]] ContentSource& source() { return source_; }
    [[nodiscard]] Tries& tries() { return tries_; }

private:
    [[nodiscard]] std::uint64_t newestBegunBy(RecordChain& chain,
                                              const std::vector<std::uint64_t>& finished,
                                              const Timestamp& at);
    void refuseLossOfOwnChain() const;
    [[nodiscard]] std::string chosenChain(const std::vector<std::string>& chains);

    const RunChoice choice_;
    RunOrigin origin_;
    IndexPosition seen_;
    Tries tries_;
    BandwidthLimit bandwidth_;
    ContentSource source_;
    ServicePlace place_;
};

/// Why a run holds nothing of a path, as far as its record tells: a sentence behind a blank; empty:
/// it does not tell.
[[nodiscard]] std::string whyNotHeld(const ItemIndex& items, std::string_view path);

/// Hands on what was read, however the reading ends.
class OriginKeeper {
public:
    OriginKeeper(RunReader& reader, RunOrigin& origin) : reader_(reader), origin_(origin) {}
    ~OriginKeeper() { origin_ = reader_.takeOrigin(); }
    OriginKeeper(const OriginKeeper&) = delete;
    OriginKeeper& operator=(const OriginKeeper&) = delete;

private:
    RunReader& reader_;
    RunOrigin& origin_;
};

/// How a fault ends an operation, with its sentence.
struct ReadFailure {
    ReadEnd end = ReadEnd::failed;
    std::string sentence;
};

/// Does a piece of work and turns what it throws into a failure.
[[nodiscard]] std::optional<ReadFailure> failureOf(const std::function<void()>& work) noexcept;

/// What an operation returns that nothing may leave. Where it cannot even tell how it ended, for
/// want of memory, it is one that says just that.
/// @param work returns it
template <class Summary, class Work> [[nodiscard]] Summary summaryOf(const Work& work) noexcept
{
    Summary summary;
    if (auto failure = failureOf([&] { summary = work(); })) {
        summary.end = failure->end;
        summary.sentence = std::move(failure->sentence);
    }
    return summary;
}

} // namespace stowline::backup
