// Which run saw an item last: a run's record holds what it was not told to back up as an earlier
// one saw it.
#pragma once

#include "stowline/backup/ItemSight.h"
#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordChain.h"
#include "stowline/backup/record/RecordHead.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// For the items of one run. One thread; a plain value.
class Sights {
public:
    Sights() = default; ///< of no run: nothing is known

    /// @param items of the run; not kept
    /// @param runs all of the chain
    /// @param headOf reads what an earlier run says of itself; only asked where the run holds what
    ///        it was not told to back up, from the newest on until all of that is explained. What
    ///        it throws ends this, but a damaged one is passed over
    Sights(const RecordHead& head, const ItemIndex& items, const std::vector<ListedRun>& runs,
           const std::function<RecordHead(std::uint64_t)>& headOf);

    /// The run that saw an item last. @return of the very run, its number and moment
    [[nodiscard]] ItemSight of(std::string_view path) const;

    /// The same of an item that the run holds: one that it could not look at is from an earlier
    /// one.
    [[nodiscard]] ItemSight of(const StoredItem& stored) const
    {
        return stored.isStale ? ItemSight() : of(stored.item.path);
    }

    /// Sentences that say from when what the run was not told to back up is, at and below paths;
    /// none where it was told to back up all of it.
    [[nodiscard]] std::vector<std::string> sentences(const std::vector<std::string>& paths) const;

    /// The places that it was not told to back up: the topmost folders and items, and folders that
    /// an earlier run was told to.
    [[nodiscard]] const std::vector<std::string>& places() const { return places_; }

private:
    void name(const RecordHead& head, const ItemIndex& items, const ItemSight& sight);
    void findPlaces(const ItemIndex& items);
    [[nodiscard]] bool isAnyUnexplained() const;
    [[nodiscard]] ItemSight withAllBelow(std::string_view path) const;

    std::uint64_t run_ = 0;
    std::map<std::string, ItemSight, std::less<>> named_; ///< newest sight of each named path
    std::vector<std::string> places_;
};

} // namespace stowline::backup
