// The tables of an index: prepared statements, folders' numbers, batches of changes.
#pragma once

#include "stowline/backup/index/IndexFile.h"
#include "stowline/backup/index/PlaceNotes.h"

#include <SQLiteCpp/Statement.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

struct ItemIndex::Tables {
    explicit Tables(IndexFile file);

    /// What a row of a folder holds: an item, or the note that it is gone.
    struct Row {
        std::string name;
        std::optional<StoredItem> item;
    };
    struct Folder {
        std::int64_t id = 0;
        std::string path;
        std::int64_t changedRun = 0;
    };
    /// Which rows of a folder: behind a name, changed after a run (-1: all), at most so many (-1:
    /// all).
    struct Selection {
        std::string_view after = {};
        std::int64_t changedAfter = -1;
        bool withGone = false;
        std::int64_t atMost = -1;
    };

    [[nodiscard]] std::optional<StoredItem> find(std::string_view path);
    [[nodiscard]] std::optional<Folder> findFolder(std::string_view path);
    [[nodiscard]] std::vector<Row> rowsIn(std::int64_t folder, std::string_view path,
                                          const Selection& selection);
    /// The folders with changes after a run, by walking order: from a key on (or behind it), before
    /// another.
    [[nodiscard]] std::vector<Folder> foldersFrom(std::string_view key, bool withKey,
                                                  std::string_view end, std::int64_t changedAfter,
                                                  std::int64_t atMost);

    /// The items that are further names of the file at a path, or of one below it.
    [[nodiscard]] std::vector<StoredItem> furtherNamesOf(std::string_view path, bool andBelow);

    void put(const StoredItem& item, std::int64_t run);
    void remove(std::string_view path, std::int64_t run);
    void setConfirmed(std::string_view path, std::int64_t run);
    void forgetVanished(std::int64_t upToRun);
    void setPosition(const IndexPosition& position);
    void noteKnownRecord(const IndexPosition& record);
    void forgetKnownRecords();
    void clear();
    /// Before a change: opens a batch, after committing one that has grown or is old.
    void begin();
    void commit();

    /// Runs what reads, or what writes inside the open batch; the database's exceptions leave as
    /// faults. What fails while it writes takes the batch back.
    template <typename Work> auto reading(const Work& work) -> decltype(work());
    template <typename Work> void writing(const Work& work);

    IndexFile file;
    PlaceNotes notes;

private:
    [[nodiscard]] Folder madeFolder(std::string_view path, std::int64_t run);
    void noteChange(Folder& folder, std::int64_t run);
    void removeBelow(std::string_view path, std::int64_t run);
    void abandon() noexcept;

    SQLite::Database& database_;
    SQLite::Statement folderByPath_;
    SQLite::Statement foldersBetween_;
    SQLite::Statement insertFolder_;
    SQLite::Statement setFolderChanged_;
    SQLite::Statement itemByName_;
    SQLite::Statement itemsOfFolder_;
    SQLite::Statement putItem_;
    SQLite::Statement removeItem_;
    SQLite::Statement removeItemsOfFolders_;
    SQLite::Statement setFoldersChanged_;
    SQLite::Statement confirm_;
    SQLite::Statement noteEmptied_;
    SQLite::Statement furtherNames_;

    /// The one asked for last: what is walked stays in a folder for a while.
    std::optional<Folder> lastFolder_;
    bool inBatch_ = false;
    int changesInBatch_ = 0;
    std::chrono::steady_clock::time_point batchBegan_;
};

template <typename Work> auto ItemIndex::Tables::reading(const Work& work) -> decltype(work())
{
    try {
        return work();
    } catch (const SQLite::Exception& fault) {
        throw faultOf(file, fault);
    }
}

template <typename Work> void ItemIndex::Tables::writing(const Work& work)
{
    try {
        work();
    } catch (const SQLite::Exception& fault) {
        const IndexFault said = faultOf(file, fault);
        abandon();
        throw said;
    }
}

} // namespace stowline::backup
