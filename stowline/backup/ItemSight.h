// From when an item of a run is.
#pragma once

#include "stowline/backup/tree/ItemRecord.h"

#include <cstdint>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// The run that saw an item last: the very one that is read where that was told to back it up and
/// could look at it, else an earlier one.
struct ItemSight {
    std::uint64_t run = 0; ///< 0: an earlier one; which is not known
    Timestamp begun;       ///< of that run
    bool isSure = true; ///< false: or one between that and the run that is read, which was cut off
                        ///< or is forgotten
    bool isEarlier = true; ///< than the run that is read
    bool operator==(const ItemSight&) const = default;
};

} // namespace stowline::backup
#pragma GCC visibility pop
