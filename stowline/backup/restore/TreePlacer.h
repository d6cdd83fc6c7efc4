// Putting the items below one named path in place.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/restore/FilePlacer.h"
#include "stowline/backup/restore/PlacedTrees.h"
#include "stowline/backup/restore/Restored.h"
#include "stowline/backup/restore/Selection.h"
#include "stowline/backup/restore/StandingNames.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace stowline::backup {

/// A device that is not put back, for it was not asked for or may not be made by this user; absent
/// for everything else.
[[nodiscard]] std::optional<RestoredItem> refusedDevice(const ItemRecord& item,
                                                        const RestoreRequest& request);

/// A file of which the run has no content, which fails.
[[nodiscard]] RestoredItem lackOfContent(const ItemRecord& item);

/// Walks the items of a run below one named path: folders, links and the like are made on the way,
/// files with content are put in place by threads, further names of hard links after them, and the
/// folders' own metadata at last, the deepest first.
class TreePlacer {
public:
    /// @param context its `done` is wrapped: the tree remembers what is not in place
    /// @param others the trees before this one; it adds what those after it need to know, but not
    ///        itself
    TreePlacer(const PlacingContext& context, const ItemIndex& items, const Selection& selection,
               PlacedTrees& others);

    /// @param idle is shown all that is looked at
    /// @param found told of each item before it is put in place
    void place(IdlePatterns& idle, const std::function<void(const StoredItem&)>& found);

    /// Makes durable what was put into place, on each file system that is mounted below the root
    /// too. After place(). @return 0, or the system's number of the first error
    [[nodiscard]] int synchronizeFileSystems() const;

private:
    /// The place of an item: the folder that it goes into, and its name there.
    struct Place {
        std::string folder;
        std::string name;
    };
    [[nodiscard]] Place placeOf(const std::string& path) const;
    [[nodiscard]] static Place placeIn(const Selection& selection, const std::string& path);

    void walk(IdlePatterns& idle, const std::function<void(const StoredItem&)>& found);
    void take(const StoredItem& stored);
    void takeFolder(const StoredItem& stored);
    void takeFile(const StoredItem& stored);
    /// A link, pipe, socket or device.
    void takeSpecial(const StoredItem& stored, bool hasStood);
    [[nodiscard]] static bool isSame(const ItemRecord& item, const platform::TargetItem& held,
                                     const platform::TargetStatus& there);
    struct Made {
        GivenName given;
        std::optional<platform::TargetItem> item;
    };
    [[nodiscard]] Made make(const ItemRecord& item, const platform::TargetFolder& folder,
                            const std::string& name, bool isNew) const;
    void takeFurtherNames();
    struct FurtherName {
        std::string path;
        bool hasStood = true; ///< see FileTask
    };
    void takeFurtherName(const StoredItem& stored, bool hasStood);
    [[nodiscard]] bool isInPlace(const std::string& path);
    /// The folder that an item of this tree or of one before it was put into, and its name there.
    struct OpenPlace {
        std::optional<platform::TargetFolder> folder;
        std::string name;
    };
    [[nodiscard]] OpenPlace openPlaceOf(const std::string& path);
    [[nodiscard]] bool linkTo(const std::string& first, const StoredItem& stored, bool hasStood);
    [[nodiscard]] bool wouldLinkTo(const std::string& first, const StoredItem& stored);
    [[nodiscard]] bool hasStood(const Place& place);
    [[nodiscard]] std::string mistakenFor(const platform::TargetFolder& folder,
                                          const std::string& path) const;
    void finishFolders();
    void tighten(const std::string& path);
    void finishFolder(const std::string& path);
    void wouldFinishFolder(const ItemRecord& item);
    [[nodiscard]] bool isUnopenedOnlyNow(int error) const;
    void removeLeftGatherings(const platform::TargetFolder& folder, const std::string& path) const;
    [[nodiscard]] std::string temporaryFor(const std::string& path,
                                           const std::string& content) const;

    [[nodiscard]] std::optional<platform::TargetFolder> openFolder(const std::string& relative,
                                                                   int& error);
    [[nodiscard]] bool isAsMade(const std::string& relative);
    void loosen(const platform::TargetFolder& above, const std::string& name,
                const std::string& path);
    [[nodiscard]] std::optional<platform::TargetFolder> folderFor(const std::string& relative,
                                                                  int& error);
    [[nodiscard]] bool isStopped() const { return context_.stop.isRequested() || hasGivenUp_; }
    void tell(RestoredItem report);
    void fail(const ItemRecord& item, const std::string& what, int error = 0);
    void failFolder(const ItemRecord& item, int error);

    void work();
    void workThroughQueue();
    void placeFile(const FileTask& task);
    void queue(FileTask task);
    void endWork();

    PlacingContext context_;
    const ItemIndex& items_;
    const Selection& selection_;
    FilePlacer files_;

    std::vector<std::string> folders_;                     ///< paths, in walking order
    std::set<std::string> madeFolders_;                    ///< of these, those that were not there
    std::map<std::string, std::uint32_t> loosenedFolders_; ///< with the modes that they had
    std::vector<FurtherName> furtherNames_;
    StandingNames standing_;
    std::string notMade_; ///< a folder whose place is taken: nothing below it is put anywhere
    bool wouldOpenMore_ = false; ///< in a dry run: a folder would be loosened

    std::mutex knownFoldersMutex_; ///< of what follows
    /// Device and inode of folders, by their places.
    std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> knownFolders_;
    std::map<std::uint64_t, platform::TargetFolder> fileSystems_; ///< a folder of each, by device

    std::mutex mutex_; ///< of what follows
    PlacedTrees& others_;
    std::condition_variable moved_;
    std::deque<FileTask> queue_;
    bool isQueueOver_ = false;
    std::set<std::string> wouldBeChanged_; ///< in a dry run: folders that something is put into
    bool mayGoOnLater_ = false;            ///< something is left that the next restore goes on with
    std::exception_ptr workFault_;         ///< why a worker gave up, and all else with it
    std::atomic<bool> hasGivenUp_ = false;
    std::vector<std::thread> workers_;
};

} // namespace stowline::backup
