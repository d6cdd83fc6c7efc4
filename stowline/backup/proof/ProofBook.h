// What was proven when: every content that the kept runs of a chain hold, and its last restoring.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordHead.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// A content on the service as some path of some runs has it; what a self-test tests at once.
struct ProofCandidate {
    std::string key;        ///< names it in the book; bytes
    std::string path;       ///< of the item
    std::uint64_t size = 0; ///< bytes on the service
    std::uint64_t firstRun = 0;
    std::uint64_t lastRun = 0; ///< the newest run of the book, where it is in that
};

/// That of an item's content.
[[nodiscard]] std::string proofKey(const std::string& path, const StoredContent& content);

/// How much of a self-test's sample is spent by a content: half by its share of all bytes, half by
/// its share of all files, so that all of them come to 1 and neither many small files nor a few
/// large ones take a test for themselves.
[[nodiscard]] double proofCost(std::uint64_t size, std::uint64_t files, std::uint64_t bytes);

/// One SQLite file (mode 0600; docs/formats/proofs.md). Moments are seconds since 1970. One thread
/// at a time. Every operation throws IndexFault when the database refuses.
class ProofBook {
public:
    /// Opens or makes the book of a chain. A file that cannot be used (damaged, of another owner or
    /// a newer version) is set aside under the same name with ".unusable", and a fresh one made:
    /// then nothing is proven. What is noted for later than a day after now counts as never proven:
    /// the clock was wrong then.
    [[nodiscard]] static ProofBook open(const std::filesystem::path& file, const IndexOwner& owner,
                                        std::int64_t now);
    /// To look at alone. @return absent when there is none that can be read
    [[nodiscard]] static std::optional<ProofBook> look(const std::filesystem::path& file,
                                                       const IndexOwner& owner);

    ProofBook(ProofBook&&) noexcept;
    ProofBook& operator=(ProofBook&&) noexcept;
    ~ProofBook();

    // ---- what there is ----

    /// The runs that are in the book, the oldest first.
    [[nodiscard]] std::vector<std::uint64_t> runs() const;
    /// The newest of them with its record's digest; run 0: none.
    [[nodiscard]] RecordLink newest() const;

    /// Takes out the runs that are not kept any more, and what only they held.
    void keepOnly(std::span<const std::uint64_t> kept);
    /// Takes out all runs, to be added anew; what was proven is remembered until keepOnly().
    void restart();

    /// Adds a run that is newer than all others, from beginRun() to endRun(), in one piece: a kill
    /// in between leaves the book without it.
    /// @param baseline whole when run 0: hold() is then called for every item of the run; else, as
    ///        a difference, for what changed since the newest run of the book
    void beginRun(const RecordLink& run, const RecordLink& baseline, std::int64_t now);
    void hold(const StoredItem& stored);
    void drop(const std::string& path); ///< gone, with all below it
    void endRun();
    /// Gives up what was begun.
    void abandonRun() noexcept;
    /// Notes that a run's record is damaged; adds the run without contents when it is not there.
    /// Its contents are read from other runs where there are any, and it is not proven.
    void noteDamaged(std::uint64_t run);
    struct DamagedRun {
        std::uint64_t run = 0;
        bool isEmpty = false; ///< it was never read: what it holds is not in the book
    };
    [[nodiscard]] std::vector<DamagedRun> damagedRuns() const;

    // ---- what is to be tested ----

    /// What was tested longest ago, or is in the book longest without it, comes first; chance
    /// decides among what is equal. Contents are chosen until they cost the share (proofCost());
    /// one that does not fit into the bytes that are left is passed over, and is the first one
    /// next time.
    struct Choice {
        std::uint64_t contents = 0;
        bool isShortOfBytes = false;   ///< something was passed over
        std::uint64_t withoutRoom = 0; ///< of all, those that only the room for one keeps out
        std::uint64_t leastRoom = 0;   ///< bytes of the smallest of these
    };
    /// Chooses what a self-test is to test; forgets what was chosen before.
    /// @param mostBytes of all together
    /// @param roomForOne larger ones are never chosen
    Choice choose(double share, std::uint64_t mostBytes, std::uint64_t roomForOne);
    /// Hands over what was chosen, portion by portion, those of the same runs together.
    /// @param mostBytes a content that is larger is a portion of its own
    /// @return nothing: that was all
    [[nodiscard]] std::vector<ProofCandidate> nextChosen(std::size_t mostContents,
                                                         std::uint64_t mostBytes);

    /// Of the kept runs that hold a content the one whose record was read the longest ago, if any
    /// can be; 0: none.
    [[nodiscard]] std::uint64_t runToReadFor(const ProofCandidate& content) const;

    // ---- what came of it ----

    enum class Outcome {
        proven,
        lost,   ///< missing or damaged: not proven; its turn comes again after all others
        passed, ///< nothing is known; its turn comes again after all others
    };
    struct Settlement {
        std::string key;
        Outcome outcome = Outcome::passed;
    };
    void settle(std::span<const Settlement> settlements, std::int64_t now);
    /// Notes that a run's record was read, with those that it builds on.
    void noteRead(std::uint64_t run, std::int64_t now);

    struct Totals {
        /// Contents of all runs; one that runs in between do not hold counts more than once.
        std::uint64_t files = 0;
        std::uint64_t bytes = 0;
        std::uint64_t provenFiles = 0; ///< since the moment that was asked for
        std::uint64_t provenBytes = 0;
        std::uint64_t lostFiles = 0;       ///< found to be lost, and not proven since
        std::uint64_t tooLargeFiles = 0;   ///< larger than the bytes that were asked for
        std::uint64_t damagedRuns = 0;     ///< whose records cannot be read
        std::uint64_t newestLostFiles = 0; ///< of those lost, what the newest run holds
        bool isNewestDamaged = false;      ///< its record is one of those
    };
    [[nodiscard]] Totals totals(std::int64_t since, std::uint64_t mostBytes) const;

    /// What is proven of one run.
    struct RunProof {
        std::uint64_t run = 0;
        std::uint64_t files = 0;       ///< contents
        std::uint64_t provenFiles = 0; ///< ever
        std::uint64_t lostFiles = 0;
        bool isDamaged = false; ///< its record cannot be read
        /// The whole run has been proven since then: each of its contents, and that its record can
        /// be read; 0: not yet.
        std::int64_t proven = 0;
    };
    /// Of all runs in the book, the oldest first. Time grows with the contents.
    [[nodiscard]] std::vector<RunProof> proofs() const;

private:
    struct Tables;
    explicit ProofBook(std::unique_ptr<Tables> tables);
    std::unique_ptr<Tables> tables_;
};

} // namespace stowline::backup
