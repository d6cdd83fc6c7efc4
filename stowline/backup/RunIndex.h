// The index while a run changes it from several threads.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/transfer/UploadJournal.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace stowline::backup {

/// One lock around the index, and the order of things when a file is stored: first the index says
/// so durably, then the journal forgets the upload. A kill between the two costs a question. Any
/// thread. Throws IndexFault.
class RunIndex {
public:
    /// @param changes false: nothing is written, as in a dry run
    RunIndex(ItemIndex index, const UploadJournal& journal, UploadOwner owner, bool changes)
        : index_(std::move(index)), journal_(journal), owner_(std::move(owner)), changes_(changes)
    {
    }

    /// The number that changes are noted under.
    void beginRun(std::uint64_t run);
    [[nodiscard]] std::uint64_t run() const { return run_; }

    [[nodiscard]] std::vector<StoredItem> itemsIn(const std::string& folder);
    [[nodiscard]] std::optional<StoredItem> find(const std::string& path);
    /// Puts an item in the place of what was known of its path. What further names of it share with
    /// it stays theirs unless they were met in this run: the first of them carries it from then on.
    void put(const StoredItem& item);
    /// The same of a folder that only leads to what is named below it: what is noted of it stays.
    void putPassage(const StoredItem& folder);
    /// Of a file that was uploaded.
    void putStored(const StoredItem& item);
    /// Further names of it, or of what was below it, keep what they shared, as with put().
    void remove(const std::string& path);
    /// The same once the run is whole (conclude()): until then the item stays as it was known, for
    /// what took its place may not be stored yet. One with further names goes at once, for those
    /// that are met from now on.
    void vanish(const std::string& path);

    /// What asking the service told of an item that is known: that it holds the version, or what
    /// the item is to be taken for. In a dry run the latter holds as long as this object.
    void confirm(const std::string& path);
    void correct(const StoredItem& item);

    /// Of an item whose content the service has lost: for this run it has none, so that it is sent
    /// again when it is met. Index and record keep what they know of it, for the service may find
    /// it again.
    void lose(const StoredItem& item);
    /// The paths whose content is lost and which this run did not come to, in walking order: those
    /// that it failed at are told as failed.
    [[nodiscard]] std::vector<std::string> lostAndNotMet();

    /// Notes that a further name of a hard link was met in this run.
    /// @return whether it has to be put: it is not known as a further name of that first one (any
    ///         more)
    [[nodiscard]] bool meetFurtherName(const std::string& path, const std::string& first);

    /// Marks what is known at and below a path as not looked at. @return how many items, each of
    ///         which counts once in a run
    std::uint64_t keepAsStale(const std::string& path);

    /// The same of an item alone, whatever is below it. @return whether anything is known of it
    bool keepAloneAsStale(const std::string& path);

    // ---- notes of places; in a dry run they are only read ----

    [[nodiscard]] std::vector<PlaceNote> notesIn(const std::string& folder);
    /// Whether an earlier run could not look at, read or store an item of which nothing is held.
    [[nodiscard]] bool isMissed(const std::string& path);
    /// Of what failed: that nothing of it is held, unless an earlier run stored it. Goes when the
    /// item is put or removed.
    void noteMissed(const std::string& path, const std::string& why);
    /// Of what a rule leaves out: it, and what is known of what is below it, goes with remove();
    /// `isWorthANote`: a note says so.
    void leaveOut(const std::string& path, const std::string& why, bool isWorthANote);
    /// The same of a folder that is recorded all the same, on the way to what is named below it.
    void noteLeftOut(const std::string& path, const std::string& why);
    /// Of a folder whose run was interrupted: what is held of it is of two states, or not all of
    /// it.
    void noteCutOff(const std::string& folder, const std::string& why);
    /// Of a named folder that is about to be looked at: what an earlier run noted under other rules
    /// holds no more.
    void beginWalk(const std::string& folder, const std::string& rules);
    /// Of a named folder that was looked at: to its end, or not. Holds once the run is whole.
    void noteWalked(const std::string& folder, const std::string& rules);
    void dropWalk(const std::string& folder);
    /// That a folder's run was cut off holds until this one is whole; every other note goes at
    /// once.
    void dropNote(const std::string& path);
    /// With those below it, once the run is whole.
    void dropNotes(const std::string& path);

    /// Everything that was found is stored, or has failed: what waited for that holds now.
    void conclude();

    /// Makes everything durable that was put.
    void commit();

    /// Keeps the other threads away from the index meanwhile.
    void withLock(const std::function<void(ItemIndex&)>& work)
    {
        const std::lock_guard lock(mutex_);
        work(index_);
    }

    /// The index itself, while no other thread uses this.
    [[nodiscard]] ItemIndex& alone() { return index_; }

private:
    void commitLocked();
    void putLocked(const StoredItem& item);
    void partFrom(const std::string& path, const StoredItem* successor);
    void handDown(const StoredItem& first, std::vector<StoredItem>& further);
    void putNoteLocked(const PlaceNote& note);
    void removeLocked(const std::string& path);
    void endWalkLocked(const std::string& folder, const std::optional<std::string>& rules);
    [[nodiscard]] bool isLost(const StoredItem& item) const;
    [[nodiscard]] bool isKept(const std::string& path) const;
    [[nodiscard]] StoredItem withoutLost(StoredItem item) const;

    std::mutex mutex_;
    ItemIndex index_;
    const UploadJournal& journal_;
    const UploadOwner owner_;
    const bool changes_;
    std::uint64_t run_ = 0;
    bool hasNotes_ = false;                       ///< of any place; else there is none to look for
    std::map<std::string, StoredItem> corrected_; ///< in a dry run, by path
    std::set<std::string> lost_;                  ///< paths whose content is
    std::set<std::string> metNames_;              ///< further names of hard links
    std::set<std::string> keptPaths_;             ///< at and below which all was kept as stale
    std::vector<std::string> vanished_;           ///< from here on all waits for conclude()
    std::vector<std::string> vanishedNotes_;
    std::set<std::string> doneWithNotes_;
    std::map<std::string, std::optional<std::string>> walks_; ///< by folder; absent: not whole
    std::vector<std::string> stored_; ///< whose journal entries go with the next commit
    std::chrono::steady_clock::time_point committed_ = std::chrono::steady_clock::now();
};

} // namespace stowline::backup
