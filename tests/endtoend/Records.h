// The records of runs, as they lie on a service.
#pragma once

#include "tests/endtoend/BackedUp.h"

#include <SQLiteCpp/SQLiteCpp.h>

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

/// The only record of that name that a chain has.
[[nodiscard]] inline devserver::StoredVersion recordIn(devserver::Storage& storage,
                                                       const std::string& name,
                                                       const std::string& system,
                                                       const std::string& profile)
{
    const auto page = storage
                          .search({.userName = "ann",
                                   .systemName = system,
                                   .folder = "/=stowline=/records",
                                   .pageSize = 100},
                                  name, "")
                          .value();
    for (const auto& item : page.items) {
        if (item.folder.ends_with("." + profile))
            return storage.versions("ann", item.id).at(0);
    }
    throw std::runtime_error("there is no record " + name);
}

/// hideRecord() of one chain.
inline void hideRecord(const BackedUp& account, const std::string& name, const std::string& system,
                       const std::string& profile)
{
    devserver::Storage storage(account.server.data());
    ASSERT_TRUE(storage.deleteVersion("ann", recordIn(storage, name, system, profile).listId));
}

/// Lets the service say that it stored a record at another time.
inline void setStoredBefore(const BackedUp& account, const std::string& name,
                            const std::string& moment, const std::string& system,
                            const std::string& profile)
{
    std::int64_t version = 0;
    {
        devserver::Storage storage(account.server.data());
        version = recordIn(storage, name, system, profile).id;
    }
    SQLite::Database database((account.server.data() / "files.sqlite").string(),
                              SQLite::OPEN_READWRITE, 5000);
    SQLite::Statement update(database, "UPDATE versions SET stored_at = ? WHERE id = ?");
    update.bind(1, moment);
    update.bind(2, version);
    ASSERT_EQ(update.exec(), 1);
}

/// Changes a byte in the middle of a record of a machine, profile "default".
inline void damageRecord(const BackedUp& account, const std::string& name,
                         const std::string& system = "iMac")
{
    devserver::Storage storage(account.server.data());
    const auto version = recordIn(storage, name, system, "default");
    const auto file = account.server.data() / version.serverFile.substr(1);
    std::string bytes = platform::readFile(file).value();
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
    std::ofstream(file, std::ios::binary) << bytes;
}

} // namespace stowline::test
