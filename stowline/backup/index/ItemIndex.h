// What is known of each item of a tree: this machine's since its last run, or any run read back.
#pragma once

#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/index/PlaceNote.h"
#include "stowline/backup/index/StoredItem.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// Whose index it is; one that belongs to anybody else is not used.
struct IndexOwner {
    std::string service; ///< origin of the service, from the settings
    std::string username;
    std::string systemName;
    std::string machine;
    std::string user;
    std::string profile;
    bool operator==(const IndexOwner&) const = default;
};

/// The record that an index is at.
struct IndexPosition {
    std::uint64_t run = 0; ///< 0: at none
    std::string digest;    ///< of the record's stored bytes
    bool operator==(const IndexPosition&) const = default;
};

/// Items by path in one SQLite file (WAL, mode 0600; docs/formats/index.md). Changes are written in
/// batches; what a kill loses is only what was not committed. One thread at a time; a second
/// process that opens the same file for writing waits, and is told after five seconds.
///
/// Every operation throws IndexFault when the database refuses; what was not committed may then be
/// lost, and the index still answers from what was.
class ItemIndex {
public:
    /// How an existing file was found.
    enum class State { fresh, continued, ofAnotherOwner, damaged, ofNewerVersion };

    /// Opens or makes the index of an owner. A file that cannot be used (of another owner, damaged,
    /// of a newer version) is set aside under the same name with ".unusable" and a fresh one made.
    /// @throws IndexFault when no index can be had there (read-only, full, no such folder)
    [[nodiscard]] static ItemIndex open(const std::filesystem::path& file, const IndexOwner& owner);

    /// Where the index of an owner is, as it was last committed. Nothing is made or changed; while
    /// a run writes the index, this reads.
    /// @return at none when there is no index that can be read
    [[nodiscard]] static IndexPosition positionOf(const std::filesystem::path& file,
                                                  const IndexOwner& owner);

    /// Whose index a file is; absent when it is none that can be read.
    [[nodiscard]] static std::optional<IndexOwner> ownerOf(const std::filesystem::path& file);

    /// The same of knownRecords().
    [[nodiscard]] static std::vector<IndexPosition>
    knownRecordsOf(const std::filesystem::path& file, const IndexOwner& owner);

    /// One in a private temporary file that is gone with it, for runs that are read back.
    [[nodiscard]] static ItemIndex temporary();

    ItemIndex(ItemIndex&&) noexcept;
    ItemIndex& operator=(ItemIndex&&) noexcept;
    ~ItemIndex();

    [[nodiscard]] State state() const;
    [[nodiscard]] IndexPosition position() const;
    /// The record is known from then on; at none, those that are stay known.
    void setPosition(const IndexPosition& position);

    /// The finished records of this chain that this machine has stored, or has read when the index
    /// was made from them, the oldest first; also some that are forgotten by now.
    [[nodiscard]] std::vector<IndexPosition> knownRecords() const;
    /// In the place of what was known of that run.
    void noteKnownRecord(const IndexPosition& record);
    /// They were another chain's, or the service has begun this one anew.
    void forgetKnownRecords();

    // ---- one item or one folder ----

    [[nodiscard]] std::optional<StoredItem> find(std::string_view path) const;

    /// The further names of the hard-linked file at a path, in no order.
    /// @param andBelow of those below the path too
    [[nodiscard]] std::vector<StoredItem> furtherNamesOf(std::string_view path,
                                                         bool andBelow) const;

    /// The items in a folder, by the bytes of their names; not those below its folders. The root
    /// folder itself is the only item of the folder "".
    [[nodiscard]] std::vector<StoredItem> itemsIn(std::string_view folder) const;

    /// The same in pages, for folders of any size: the items behind a name (empty: from the first),
    /// at most so many. Fewer than that: these were the last.
    [[nodiscard]] std::vector<StoredItem> itemsIn(std::string_view folder, std::string_view after,
                                                  std::size_t atMost) const;

    /// Puts an item in the place of what was known of its path. Where that was a folder and the
    /// item is none, what was below it is noted as gone.
    /// @param run that changed it
    void put(const StoredItem& item, std::uint64_t run);

    /// Notes that an item, with all that is below it, is there no more. What was never known, or is
    /// known to be gone, stays as it is.
    void remove(std::string_view path, std::uint64_t run);

    // ---- many ----

    /// Every item at and below a path in walking order (comparePaths); "/" is everything. The
    /// function returns whether to go on; it may change the index, and meets its changes to what
    /// lies further on, or not.
    void forEach(std::string_view below, const std::function<bool(const StoredItem&)>& take) const;

    /// What changed after a run, in walking order: items as they are now, and paths that vanished.
    struct Change {
        std::string path;
        std::optional<StoredItem> item; ///< absent: gone, with what was below it
    };
    void forEachChangeSince(std::uint64_t run,
                            const std::function<bool(const Change&)>& take) const;

    /// How many items went after a run, those below a folder that went among them: each that was
    /// known then and is not now (and what came and went since). A file that had content and is
    /// empty now, or a folder, a link or the like, went too. Counted anew.
    [[nodiscard]] std::uint64_t goneSince(std::uint64_t run) const;

    /// Drops the notes of what vanished in a run or before: nobody will ask for changes since an
    /// earlier one any more.
    void forgetVanished(std::uint64_t upToRun);

    /// Takes everything out, as before the first record: the position and known records too.
    void clear();

    /// Both are counted anew, in time that grows with the items. Bytes: the sizes of the files that
    /// have content, as they are on disk.
    [[nodiscard]] std::uint64_t itemCount() const;
    [[nodiscard]] std::uint64_t contentBytes() const;
    /// The items that are carried forward (StoredItem::isStale), counted anew as well.
    [[nodiscard]] std::uint64_t staleCount() const;

    // ---- notes of places, beside the items ----

    /// The notes of what is directly in a folder, by the bytes of the names.
    [[nodiscard]] std::vector<PlaceNote> notesIn(std::string_view folder) const;
    [[nodiscard]] std::optional<PlaceNote> noteAt(std::string_view path) const;
    /// Puts a note in the place of that of its path. The very same one is not a change.
    void putNote(const PlaceNote& note, std::uint64_t run);
    void removeNote(std::string_view path, std::uint64_t run);
    /// Those of what lies below a path, not that of the path itself.
    void removeNotesBelow(std::string_view path, std::uint64_t run);
    /// How many there are of a kind, counted anew.
    [[nodiscard]] std::uint64_t noteCount(PlaceNote::Kind kind) const;

    /// Every note, folder by folder; the function returns whether to go on.
    void forEachNote(const std::function<bool(const PlaceNote&)>& take) const;
    /// Those that changed after a run; absent: there is none any more.
    void forEachNoteChangeSince(
        std::uint64_t run,
        const std::function<bool(const std::string& path, const std::optional<PlaceNote>& note)>&
            take) const;

    // ---- versions that the service is asked after ----

    /// Paths of files with content whose versions were asked after the longest ago, at most so
    /// many, the longest ago first. A new version counts as confirmed in the run that stored it.
    [[nodiscard]] std::vector<std::string> longestUnconfirmed(std::size_t atMost) const;
    /// Notes that the service has confirmed the version of a path, in a run. No change of the item.
    void setConfirmed(std::string_view path, std::uint64_t run);

    /// Writes everything so far to disk, for others to see. Also done by itself: by the change that
    /// makes some thousand, or that finds the first one older than a second; and at the end of the
    /// object, where a failure is lost. Who is about to wait for long commits first.
    void commit();

    struct Tables; ///< for its own files only

private:
    explicit ItemIndex(std::unique_ptr<Tables> tables);
    std::unique_ptr<Tables> tables_;
};

} // namespace stowline::backup
