// Finding a run on the service and reading its tree.
#pragma once

#include "stowline/backup/RunChoice.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"
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

    /// The chain of the choice's machine.
    [[nodiscard]] RecordChain openChain();

    /// The number of the chosen run.
    [[nodiscard]] std::uint64_t chosenRun(RecordChain& chain) const;

    /// The tree of the chosen run.
    struct Tree {
        RecordHead head;
        ItemIndex items;
    };
    [[nodiscard]] Tree readChosen();

    [[nodiscard]] ContentSource& source() { return source_; }
    [[nodiscard]] Tries& tries() { return tries_; }

private:
    const RunChoice choice_;
    Tries tries_;
    BandwidthLimit bandwidth_;
    ContentSource source_;
    ServicePlace place_;
};

/// How a fault ends an operation, with its sentence.
struct ReadFailure {
    ReadEnd end = ReadEnd::failed;
    std::string sentence;
};

/// Does a piece of work and turns what it throws into a failure.
[[nodiscard]] std::optional<ReadFailure> failureOf(const std::function<void()>& work) noexcept;

} // namespace stowline::backup
