// Which versions only forgotten runs hold: the arithmetic of forgetting.
#pragma once

#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/transfer/VersionCheck.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace stowline::backup {

/// Takes the runs of chains in turn, each as what it changes in the tree before it, and knows in
/// the end which versions are held by runs of one chain that are forgotten, and by no other run of
/// any chain. What cannot be told for certain is held. In a temporary file of the database's own,
/// which the system takes away however the program ends; memory stays the same whatever comes.
/// Throws IndexFault. One thread at a time.
///
///     ledger.beginChain({3, 4}, true);                    // runs 3 and 4 are kept
///     ledger.beginRun(1, true); ledger.hold(item) …       // a whole tree
///     ledger.beginRun(2, false); ledger.hold(item); ledger.drop("/gone") …
///     ledger.endChain();
///     ledger.beginChain({7}, false); …                    // of others everything is held
///     ledger.settle();
class VersionLedger {
public:
    VersionLedger();
    ~VersionLedger();
    VersionLedger(const VersionLedger&) = delete;
    VersionLedger& operator=(const VersionLedger&) = delete;

    /// @param kept runs whose trees are held, ascending
    /// @param isForgetting whether what no kept run of this chain holds may go, unless another
    ///        chain holds it
    void beginChain(std::vector<std::uint64_t> kept, bool isForgetting);
    /// @param run higher than those before it
    /// @param isWhole what is not told of it is not in it; else what is not told is as in the run
    ///        before
    void beginRun(std::uint64_t run, bool isWhole);
    void hold(const StoredItem& item);
    /// A path is there no more, with all below it. Only in a run that is not whole.
    void drop(const std::string& path);
    void endRun();
    void endChain();

    /// What a run holds that is no part of a chain of trees, as one that was cut off.
    void holdForGood(const StoredItem& item);

    /// After all chains: what is held by any goes off the list.
    void settle();

    /// What only forgotten runs hold.
    struct Candidate {
        StoredVersion stored;
        bool isThere = false; ///< noteThere() was said of it
    };
    /// In the order of their versions as texts, behind one of them ("": from the first on).
    [[nodiscard]] std::vector<Candidate> candidatesAfter(const std::string& version,
                                                         std::size_t atMost) const;
    [[nodiscard]] std::uint64_t candidateCount() const;

    /// Contents that only forgotten runs hold, and of which no record says which version or list
    /// they are: nothing can be done about them.
    [[nodiscard]] std::uint64_t unnamedCount() const;

    /// Whether the service holds it, for candidatesAfter().
    void noteThere(const std::string& version);

private:
    struct Tables;
    std::unique_ptr<Tables> tables_;
};

} // namespace stowline::backup
