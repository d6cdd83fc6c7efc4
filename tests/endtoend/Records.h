// The records of runs, as they lie on a service.
#pragma once

#include "tests/endtoend/BackedUp.h"

namespace stowline::test {

/// Takes a record away, as a service does that shows an older state.
/// @param name as "00000002-finished"
inline void hideRecord(const BackedUp& account, const std::string& name)
{
    devserver::Storage storage(account.server.data());
    const auto page =
        storage
            .search({.userName = "ann", .folder = "/=stowline=/records", .pageSize = 100}, name, "")
            .value();
    for (const auto& version : storage.versions("ann", page.items.at(0).id))
        ASSERT_TRUE(storage.deleteVersion("ann", version.listId));
}

} // namespace stowline::test
