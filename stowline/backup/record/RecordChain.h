// The chain of records of one machine, user and profile: found, read, and added to.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/ChainWalk.h"
#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/record/RecordHead.h"
#include "stowline/backup/record/RecordPlace.h"
#include "stowline/backup/record/RecordReader.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace stowline::backup {

/// A run as its records' names tell of it.
struct ListedRun {
    std::uint64_t run = 0;
    RecordState state = RecordState::begun; ///< the furthest that it came to
    std::uint64_t size = 0;                 ///< stored bytes of that record
    std::uint32_t lastUnfinished = 0;       ///< number of its last unfinished record; 0: none
    /// A note says so. Its record stays as long as others rest on it, but it is no run to be read.
    bool isForgotten = false;
};

/// What storing a record came to.
struct StoredRecord {
    IndexPosition position; ///< for ItemIndex::setPosition(), when it is a finished one
    bool isFull = false;
    std::uint64_t sentBytes = 0;
    std::uint64_t items = 0; ///< that the run holds, and the bytes of their content
    std::uint64_t bytes = 0;
    std::vector<RunLoss> losses; ///< as its head has them
};

/// One chain. Every operation may throw RecordFault (and IndexFault where it takes an index). A
/// kill at any moment leaves the chain readable: a record is there whole or not at all, and nothing
/// builds on any but a finished one. One thread at a time.
///
/// How a run uses it:
///
///     auto chain = RecordChain::open(place, identity, workFolder);  // asks the place
///     if (chain.newestRun() == 0 && !chain.otherChains().empty())   // another identity: --adopt
///     chain.refuseOlderThan(index.position());                     // rolledBack: status 7
///     if (index.position().run != chain.newestFinished()) chain.load(chain.newestFinished(),
///     index) const auto run = chain.begin(description, index.position()); // rows of the index
///     carry it chain.storeUnfinished(index, figures);                       // at intervals
///     index.setPosition(chain.storeFinished(index, figures).position);
class RecordChain {
public:
    /// Asks the place what there is.
    /// @param workFolder where records are put together before they are stored and taken apart
    ///        after they are fetched: a private folder that must exist
    [[nodiscard]] static RecordChain open(RecordPlace& place, const ChainIdentity& identity,
                                          std::filesystem::path workFolder);
    /// The same by the name of a chain, to read from: another machine's, or an earlier identity's.
    [[nodiscard]] static RecordChain openNamed(RecordPlace& place, std::string chain,
                                               std::filesystem::path workFolder);

    [[nodiscard]] const std::string& name() const { return name_; }

    /// The other chains under the same machine name.
    [[nodiscard]] const std::vector<std::string>& otherChains() const { return otherChains_; }

    /// The runs, the oldest first.
    [[nodiscard]] std::vector<ListedRun> runs() const;

    /// Highest number of any record, and of a finished one that is not forgotten; 0: none.
    [[nodiscard]] std::uint64_t newestRun() const;
    [[nodiscard]] std::uint64_t newestFinished() const;

    /// Whether there is a finished record of a run, forgotten or not.
    [[nodiscard]] bool isFinished(std::uint64_t run) const;
    /// Whether a note says that a run is forgotten, and all such runs, the oldest first: also those
    /// of which nothing but the note is left.
    [[nodiscard]] bool isForgotten(std::uint64_t run) const;
    [[nodiscard]] std::vector<std::uint64_t> forgottenRuns() const;

    /// The names of all records, in their order. What another machine does shows in them.
    [[nodiscard]] std::vector<std::string> recordNames() const;
    /// Asks the place anew what there is of this chain.
    void listAnew();

    /// Whether there is a finished record at least as new as one that this machine has seen.
    [[nodiscard]] bool shows(const IndexPosition& seen) const { return seen.run <= newestShown(); }
    /// Throws rolledBack when this machine has seen a newer finished record than there is.
    void refuseOlderThan(const IndexPosition& seen) const;

    /// From now on load(), read() and isWholeBelow() throw rolledBack where they meet another
    /// record under the number of one that this machine has seen.
    void expect(const std::vector<IndexPosition>& seen);

    /// What is known of a run's record (walkBackTo()), by what is expected. Fetches the records
    /// between it and the nearest later one that is, else the newest.
    [[nodiscard]] ChainFinding trustOf(std::uint64_t run);

    /// Reads what a difference after the newest finished record would rest on: that record and
    /// those below it, as far as they come to at most so many bytes. Throws `damaged` or `notFound`
    /// when one cannot be read any more.
    /// @param seen the newest finished run, and its record's digest as this machine knows it
    /// @return whether each is the one that the later one, or this machine, knows
    [[nodiscard]] bool isWholeBelow(const IndexPosition& seen, std::uint64_t atMostBytes);

    /// What a run says of itself, from its furthest record. Costs one small request.
    [[nodiscard]] RecordHead head(std::uint64_t run);

    /// Hands over what the furthest record of a run says itself, without what it builds on, once it
    /// was fetched and found to be whole. Throws `damaged` for one whose bytes are others.
    /// @param listener given the record's head and its digest
    void read(std::uint64_t run,
              const std::function<RecordListener(const RecordHead&, const std::string& digest)>&
                  listener);

    /// When the place took the furthest record of a run, by its own clock (RecordPlace).
    [[nodiscard]] std::optional<std::int64_t> storedAt(std::uint64_t run);

    /// Stores the note that a run is forgotten: from then on nobody reads it as a run, though its
    /// record may go on to be one that others rest on.
    /// @param description whose chain it is, and when (`begun`)
    void noteForgotten(std::uint64_t run, const RunDescription& description);
    /// Takes the records of a forgotten run away, and then the note.
    void removeForgotten(std::uint64_t run);

    /// Fills an index with the tree of a run (its finished record, else its last unfinished one),
    /// after taking out what is in it, and sets its position (to the record that it builds on when
    /// it is unfinished). Every record on the way is checked against the digest that the next one
    /// names. What fails leaves the index empty and at no position. What the index knows of records
    /// stays known, unless one of these is another; those that were read are known from then on.
    /// A forgotten run is not found.
    /// @return what the run says of itself
    RecordHead load(std::uint64_t run, ItemIndex& index);
    /// The same of a forgotten run too, for whoever looks what it held.
    RecordHead loadEvenForgotten(std::uint64_t run, ItemIndex& index);

    /// Stores the note that a run begins. @return its number: one above all others
    /// @param at where the run's index is: at newestFinished(), so that the run's record can be a
    ///        difference, or at none, and the record will be a full one
    /// @param beforeStored told the number and the digest of the note before anybody can see it
    std::uint64_t begin(
        const RunDescription& description, const IndexPosition& at,
        const std::function<void(std::uint64_t run, const std::string& digest)>& beforeStored = {});

    /// Whether the number that begin() took is this run's alone. Where two runs took one number at
    /// the same moment the later note stands, and where one of them is finished its record; the
    /// other run must store no record under it. Asks the place anew.
    [[nodiscard]] bool isNumberOurs();

    /// The digest of the note that a run began with; absent: there is none. Fetches it.
    [[nodiscard]] std::optional<std::string> begunDigestOf(std::uint64_t run);

    /// Counts of a run for its record.
    struct Figures {
        std::uint64_t newBytes = 0; ///< of content stored by it
        std::uint64_t failed = 0;   ///< items that it could not look at, read or store
        Timestamp ended;
        /// A person has said that what was found gone up to this run was meant to go; 0: nobody.
        std::uint64_t confirmedUpTo = 0;
    };

    /// Stores what the index holds as this run's record. Only after begin(), with the index that
    /// begin() was told of. A finished record is the end of the run.
    StoredRecord storeUnfinished(const ItemIndex& index, const Figures& figures);
    StoredRecord storeFinished(const ItemIndex& index, const Figures& figures);

private:
    RecordChain(RecordPlace& place, std::string name, std::filesystem::path workFolder);

    void list();
    [[nodiscard]] std::uint64_t newestShown() const;
    [[nodiscard]] ChainLink linkOf(std::uint64_t run);
    void requireExpected(std::uint64_t run, const std::string& digest) const;
    void put(const RecordName& as, const std::filesystem::path& file, std::uint64_t size);
    [[nodiscard]] const RecordFile& furthest(std::uint64_t run) const;
    [[nodiscard]] StoredRecord store(const ItemIndex& index, const RecordName& as,
                                     const Figures& figures);
    void addLosses(RecordHead& head, const ItemIndex& index, const Figures& figures) const;

    RecordPlace* place_;
    std::string name_;
    std::filesystem::path workFolder_;
    std::vector<std::string> otherChains_;
    std::map<RecordName, RecordFile> files_;
    std::optional<RecordHead> running_;             ///< after begin()
    std::uint64_t predecessorItems_ = 0;            ///< 0: not known
    std::map<std::uint64_t, std::string> expected_; ///< digests by run
    std::map<std::uint64_t, ChainLink> links_;      ///< of finished records that were fetched
    std::string begunDigest_;                       ///< of the note that begin() stored
};

} // namespace stowline::backup
