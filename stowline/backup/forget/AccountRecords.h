// The chains of all machines of an account.
#pragma once

#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {

/// Looked at as one. Throws RecordFault. One thread at a time.
class AccountRecords {
public:
    /// @param uploads how records are stored under the account's own machine name
    AccountRecords(const Account& account, Tries& tries, ContentSource& source,
                   UploadContext& uploads, std::filesystem::path workFolder);

    struct Chain {
        std::string systemName;
        RecordChain chain;
    };

    /// Lists everything. @return the chain of that name under the account's machine name; null:
    /// there is none. It stays in chains().
    [[nodiscard]] RecordChain* open(const std::string& chainName);
    [[nodiscard]] std::vector<Chain>& chains() { return chains_; }

    /// The names of the records of all chains, by machine name and chain: as they are known here,
    /// and as the service shows them now.
    using Names = std::map<std::pair<std::string, std::string>, std::vector<std::string>>;
    [[nodiscard]] Names names() const;
    [[nodiscard]] Names namesNow();

private:
    [[nodiscard]] ServicePlace& placeOf(const std::string& systemName);

    const Account account_;
    Tries& tries_;
    ContentSource& source_;
    UploadContext& uploads_;
    const std::filesystem::path workFolder_;
    std::map<std::string, std::unique_ptr<ServicePlace>> places_;
    std::vector<Chain> chains_;
};

/// A run that has begun and not ended.
struct OpenRun {
    std::string systemName;
    std::string chain;
    std::uint64_t run = 0;
    /// When the service took its last sign; absent: it does not tell.
    std::optional<std::int64_t> lastSign;
    bool isSilent = false;     ///< that was more than a week ago
    bool isLaterEnded = false; ///< a later run has ended in its place
};

/// What is known of runs that have begun and not ended beside what the service shows.
struct KnownRuns {
    /// Of the own chain, those that are over for certain.
    std::set<std::uint64_t> over = {};
    /// Whether a person has said that a run will never go on.
    std::function<bool(const OpenRun& run)> isGivenUp = {};
};

/// All that have begun and not ended, of all chains; forgotten ones are none.
[[nodiscard]] std::vector<OpenRun> openRuns(std::vector<AccountRecords::Chain>& chains);

/// A run for which nothing may be deleted, because nobody knows what it relies on: one that has
/// begun and is not known to have been cut off. What an index knows of one that was cut off is in
/// the record of the next run of its chain that ends; so it is let go then, if it is over for
/// certain, or a week after its last sign. (A run gives a sign each half hour.) Where another
/// machine has taken the place of one under its name, with the same user and profile, the end of
/// its later runs counts as well; where a person has given a run up, no end is waited for. It is
/// now, by the service's own clock, when it took the last finished record of the account. Throws
/// RecordFault.
[[nodiscard]] std::optional<OpenRun> runThatHolds(std::vector<AccountRecords::Chain>& chains,
                                                  const RecordChain& own, const KnownRuns& known);

} // namespace stowline::backup
