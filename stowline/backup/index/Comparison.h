// Has an item changed? Decided over what is known of it and what it is like now.
#pragma once

#include "stowline/backup/index/StoredItem.h"

#include <string_view>

namespace stowline::backup {

struct ComparisonOptions {
    bool ignoresChangeTime = false; ///< --ignore-ctime
    bool ignoresInode = false;      ///< --ignore-inode
    bool trustsNothing = false;     ///< --trust-nothing: every file is read
};

enum class Verdict {
    unchanged,
    recorded, ///< described anew; content, if it has any, is the same without a look
    read      ///< a file whose content must be read: it may be the same all the same
};

enum class ChangeReason {
    none,
    newItem,
    kind,
    noContent, ///< nothing of it is stored
    changedWhileRead,
    asked, ///< nothing is trusted
    size,
    modified,
    changed,
    inode,
    unsettled, ///< it could have been written after it was read without showing it
    hardLink,  ///< another name carries the content now, or none does any more
    stale,     ///< what is known was carried forward
    metadata
};

struct Decision {
    Verdict verdict = Verdict::unchanged;
    ChangeReason reason = ChangeReason::none;
    bool operator==(const Decision&) const = default;
};

/// Decides; a pure function.
///
/// A file is unchanged when size, modification time, change time and inode equal what is known, and
/// both times are not later than two seconds before the earlier reading began (some file systems
/// count in steps of two seconds). The number of the file system counts for nothing. Extended
/// attributes are compared only when change times are ignored; else no change of theirs goes
/// without one.
/// @param known null: nothing
/// @param sameFileAs of a further name of a hard link: the name that carries the content
[[nodiscard]] Decision compare(const StoredItem* known, const ItemRecord& now,
                               std::string_view sameFileAs, const ComparisonOptions& options);

/// Whether a stamp could still be the same after another write.
[[nodiscard]] bool isUnsettled(const Timestamp& stamp, const Timestamp& readBegan);

} // namespace stowline::backup
