// What it means that a run does not hold an item: it was not there, or nobody knows.
#pragma once

#include "stowline/backup/index/ItemIndex.h"
#include "stowline/backup/record/RecordHead.h"
#include "stowline/backup/tree/TreeRules.h"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace stowline::backup {

enum class Absence {
    wasNotThere, ///< the folder was looked at as a whole, and no rule leaves such an item out
    leftOut,     ///< a rule of the run leaves it out, or may have
    notLookedAt, ///< the run could not look, or was not told to
};

/// The rules of a run in a folder that was named, as its record notes them.
struct NotedRules {
    TreeRules rules;
    std::string unreadable;  ///< a rule that cannot be followed here; empty: none
    bool areTooLong = false; ///< they were too many for the record (docs/formats/record.md)
};
[[nodiscard]] NotedRules notedRules(const PlaceNote& walked);

/// The folders that a run itself looked at as a whole: what it was told to back up, by the real
/// paths. What its record notes of other folders is what an earlier run saw of them.
[[nodiscard]] std::set<std::string> foldersWalkedBy(const RecordHead& head, const ItemIndex& items);

/// Reads items and notes of a run, place by place from the root down: of the notes above a place
/// the nearest one counts, and all that is between it and the place. One thread. Throws IndexFault.
class Absences {
public:
    /// @param items must outlive this
    /// @param walked where notes of folders that were looked at count; elsewhere nobody looked.
    ///        Absent: they count wherever they are, whichever run they are from
    explicit Absences(const ItemIndex& items,
                      std::optional<std::set<std::string>> walked = std::nullopt)
        : items_(items), walked_(std::move(walked))
    {
    }

    /// Whether a note counts that a folder was looked at as a whole.
    [[nodiscard]] bool counts(const PlaceNote& walked) const
    {
        return !walked_ || walked_->contains(walked.path);
    }

    /// A place, and what it means when nothing is held there.
    struct Place {
        std::string path;
        Absence absence = Absence::notLookedAt;
        const NotedRules* noted = nullptr; ///< of the nearest note that has rules; null: none
        std::size_t baseLength = 0;        ///< of the path from which its patterns count
        bool isIncluded = false;           ///< it or a folder above it matches an include pattern
    };

    /// What is known of an item, besides its place.
    struct Subject {
        bool isFolder = false;
        bool isListedAsHidden = false;
        const ItemRecord* held = nullptr; ///< null: the run does not hold it
        bool isStale = false;
        std::optional<PlaceNote> note; ///< of this very path
    };

    /// An item in a folder.
    [[nodiscard]] Place in(const Place& folder, std::string path, const Subject& subject);

    /// A folder that the run holds, and all above it.
    [[nodiscard]] Place at(const std::string& path);

private:
    [[nodiscard]] const NotedRules& rulesOf(const PlaceNote& note);

    const ItemIndex& items_;
    const std::optional<std::set<std::string>> walked_;
    std::map<std::string, NotedRules> rules_; ///< by the text of the notes
};

} // namespace stowline::backup
