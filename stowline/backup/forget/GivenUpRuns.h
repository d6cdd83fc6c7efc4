// Runs that were cut off and that will never go on, by a person's word.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/forget/AccountRecords.h"

#include <filesystem>
#include <set>
#include <string>
#include <tuple>

namespace stowline::backup {

/// What a person has said of runs of an account, as a state folder has it for all its profiles. A
/// word counts as long as the run gives no later sign. One thread at a time.
class GivenUpRuns {
public:
    GivenUpRuns(const std::filesystem::path& stateFolder, const Account& account);

    [[nodiscard]] bool contains(const OpenRun& run) const;
    /// @return whether it is on the disk
    [[nodiscard]] bool add(const OpenRun& run);
    [[nodiscard]] const std::filesystem::path& file() const { return file_; }

private:
    /// Service, account, machine name, "CHAIN/RUN", moment of the last sign.
    using Word = std::tuple<std::string, std::string, std::string, std::string, std::string>;
    [[nodiscard]] Word wordOf(const OpenRun& run) const;

    const std::filesystem::path file_;
    const std::string service_;
    const std::string username_;
    std::set<Word> words_;
};

/// "CHAIN/RUN", as a person names it.
[[nodiscard]] std::string nameOf(const OpenRun& run);

} // namespace stowline::backup
