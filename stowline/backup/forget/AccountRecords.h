// The chains of all machines of an account.
#pragma once

#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/ServicePlace.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
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
};

/// A run for which nothing may be deleted, because nobody knows what it relies on: one that has
/// begun and is not known to have been cut off. What an index knows of one that was cut off is in
/// the record of the next run of its chain that ends; so it is let go then: of the own chain at
/// once, as no other run of it is going on, of others a week after its last sign, by the service's
/// own clock. (A run gives a sign each half hour.) Where another machine has taken the place of one
/// under its name, with the same user and profile, the end of its runs counts as well. Throws
/// RecordFault.
/// @param own the chain whose runs are kept away meanwhile
[[nodiscard]] std::optional<OpenRun> runThatHolds(std::vector<AccountRecords::Chain>& chains,
                                                  const RecordChain& own);

} // namespace stowline::backup
