// Which deleted records of a chain can come back to those that stand.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace stowline::devserver {

/// One version of a record.
struct ChainRecord {
    std::string name;         ///< "00000012-finished"; anything else may lie there too
    std::int64_t version = 0; ///< later ones are higher
    std::string content;      ///< the same word for the same content only
};

/// The records of one chain, while deleted ones come back to them. Not for several threads.
class StandingRecords {
public:
    /// Whether a record can stand among them: not where other content stands under its name, which
    /// one of them would hide; nor where a chain was begun anew between it and what stands, that is
    /// a run was begun under its number or a lower one after it, or it begins one under the number
    /// of an older record or a lower one. A note that a run is being forgotten never can.
    [[nodiscard]] bool canTake(const ChainRecord& record) const;

    void take(const ChainRecord& record);

private:
    // Only what bounds others: the versions ascend with the numbers in both.
    std::map<std::uint64_t, std::int64_t> newestBegun_; ///< up to a number
    std::map<std::uint64_t, std::int64_t> oldest_;      ///< from a number on
    std::map<std::string, ChainRecord> newest_;         ///< by name
};

} // namespace stowline::devserver
