// What a run asks the service besides its uploads: what is held.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/transfer/Tries.h"

#include <cstdint>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {

/// A version as the service's listing shows it.
struct HeldFile {
    std::uint64_t size = 0;
    std::string checksum; ///< CRC-32 as eight hexadecimal digits
    std::int64_t id = 0;  ///< the service's number of the file
};

/// What the service calls a version: its number, and its name in a deletion.
struct HeldVersion {
    std::string version;
    std::string list;
};

/// The newest version of a file that has the size and the checksum of its listing.
/// @return absent when there is none, and when the question failed: see `failure`
[[nodiscard]] std::optional<HeldVersion> versionOf(const Account& account, const HeldFile& file,
                                                   Tries& tries,
                                                   std::optional<StepFailure>& failure);

/// The files of one machine, listed a folder at a time when first asked for. Folders below one that
/// is not there are not asked about. Any thread; a folder is asked about once, and several at the
/// same time.
class HeldFiles {
public:
    HeldFiles(const Account& account, Tries& tries) : account_(account), tries_(tries) {}

    /// What came of a question: a file, its absence, or that nobody knows.
    struct Answer {
        std::optional<HeldFile> file;
        std::optional<StepFailure> failure;
    };
    /// @param folder, name as the service carries them
    [[nodiscard]] Answer find(const std::string& folder, const std::string& name);

private:
    struct Folder {
        std::map<std::string, HeldFile> files;
        std::set<std::string> folders;
        std::optional<StepFailure> failure;
    };
    using Listing = std::shared_future<std::shared_ptr<const Folder>>;
    [[nodiscard]] std::shared_ptr<const Folder> folder(const std::string& path);
    [[nodiscard]] Folder listed(const std::string& path);
    [[nodiscard]] Folder listOfSystems();
    [[nodiscard]] std::optional<StepFailure> readPages(const std::string& path, Folder& folder);

    const Account account_;
    Tries& tries_;
    std::mutex mutex_;
    std::map<std::string, Listing> listings_; ///< by remote path; "/" is the root
};

} // namespace stowline::backup
