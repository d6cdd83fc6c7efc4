// Putting files with content in place: fetched beside it, checked, made durable, then renamed.
#pragma once

#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/restore/GivenName.h"
#include "stowline/backup/restore/Metadata.h"
#include "stowline/backup/restore/Restored.h"
#include "stowline/backup/restore/VersionFinder.h"
#include "stowline/backup/transfer/ContentSource.h"
#include "stowline/platform/files/TargetFolder.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// The name beside a file under which its content is gathered. The same for the same name and
/// content, so that what was cut off is gone on with.
/// @param attempt another one for each
[[nodiscard]] std::string gatheringName(const std::string& name, const std::string& digest,
                                        unsigned attempt = 0);
/// Whether a name has the form of those.
[[nodiscard]] bool isGatheringName(std::string_view name);
/// Takes away a file that a restore left that was killed; not one that is being gathered.
void removeLeftGathering(const platform::TargetFolder& folder, const std::string& name);

/// Adds what putting back an item's metadata came to to the report on it, which has its state.
void takeOutcome(MetadataOutcome& outcome, RestoredItem& report);

/// Whether a rule leaves what stands in an item's place as it is, whatever it is.
[[nodiscard]] bool isLeftAlone(Overwrite rule, const ItemRecord& item,
                               const platform::TargetStatus& there);

/// A file on its way.
struct FileTask {
    StoredItem stored;
    std::string folder; ///< relative to the root; empty: the root
    std::string name;
    std::string temporary;         ///< its gathering name, which no item of the run has
    bool hasStood = true;          ///< something of this very name stood there before the restore
    std::vector<Loss> losses = {}; ///< of it that are known before
};

/// What all files of a restore share.
struct PlacingContext {
    const RestoreRequest& request;
    const platform::TargetFolder& root;
    ContentSource& source;
    VersionFinder& versions;
    Owners& owners;
    const StopRequest& stop;
    std::function<void(RestoredItem)> done;     ///< any thread
    std::function<void(std::int64_t)> gathered; ///< bytes on their way; negative: given up
    /// Another item of the run that the file system shows in the place of one of this path; empty
    /// when there is none. Any thread.
    std::function<std::string(const platform::TargetFolder&, const std::string& path)> mistakenFor;
    /// Opens a folder below the root. ESTALE: it is not the one that the restore knows. Any thread.
    std::function<std::optional<platform::TargetFolder>(const std::string& folder, int& error)>
        openFolder;
};

/// "…: the target does not distinguish its name from that of …"
[[nodiscard]] std::string mistakenSentence(const std::string& path, const std::string& other);
/// "…: another folder has taken the place of its folder …"
[[nodiscard]] std::string anothersFolderSentence(const std::string& path);

/// Puts files in place. Any thread. What is whole waits for some others, so that one request to the
/// file system makes all of them durable before they get their names; finish() ends that.
class FilePlacer {
public:
    explicit FilePlacer(const PlacingContext& context);

    void place(const FileTask& task);

    /// Where few descriptors are left, gives names to what waits for them, and lets others end: a
    /// file on its way takes some, and so does the fetching of its parts. Before something is
    /// opened. Any thread.
    void awaitDescriptors();

    /// Gives what is whole its names. After the last place().
    void finish();

private:
    struct Gathered {
        std::shared_ptr<platform::TargetFolder> folder;
        platform::TargetFile file; ///< keeps its lock
        std::string temporary;
        std::string name;
        bool hasStood = true; ///< see FileTask
        /// With set-id bits or capabilities, which it gets at last; else absent.
        std::unique_ptr<const ItemRecord> privileged;
        RestoredItem report;
    };

    [[nodiscard]] bool settleExisting(const FileTask& task, const platform::TargetFolder& folder,
                                      RestoredItem& report);
    enum class Use { look, putMetadata };
    [[nodiscard]] std::optional<platform::TargetItem>
    itemOfSameContent(const StoredItem& stored, const platform::TargetFolder& folder,
                      const std::string& name, Use use) const;
    void gather(const FileTask& task, std::shared_ptr<platform::TargetFolder> folder,
                RestoredItem report);
    [[nodiscard]] std::optional<platform::TargetFile>
    openGathering(const platform::TargetFolder& folder, const std::string& temporary,
                  RestoredItem& report) const;
    [[nodiscard]] bool fill(const FileTask& task, const platform::TargetFile& file,
                            RestoredItem& report, bool& isKept);
    [[nodiscard]] bool fillOnce(const FileTask& task, const std::string& version,
                                const platform::TargetFile& file, std::uint64_t from,
                                RestoredItem& report, bool& isKept, bool& isDigestWrong);
    [[nodiscard]] std::string versionFor(const FileTask& task, RestoredItem& report, bool& isKept);
    void enqueue(Gathered gathered);
    void giveNames(std::vector<Gathered> gathered);
    [[nodiscard]] GivenName nameGathered(const Gathered& gathered,
                                         const platform::TargetItem& item);
    void finishGathered(Gathered& gathered);
    static void leaveUnsafe(Gathered& gathered, int error);

    const PlacingContext& context_;
    const std::size_t mostWaiting_;
    const bool areDescriptorsFew_;
    std::mutex naming_; ///< where a file system cannot look and rename at once
    std::mutex mutex_;  ///< of what follows
    std::vector<Gathered> waiting_;
    std::uint64_t waitingBytes_ = 0;
};

} // namespace stowline::backup
