#include "devserver/DataFolder.h"

#include "stowline/platform/files/ContentFile.h"
#include "stowline/platform/files/Files.h"

#include <array>

namespace stowline::devserver {

namespace fs = std::filesystem;

namespace {

constexpr std::array<const char*, 4> kDatabases{"service.sqlite", "files.sqlite", "journal.sqlite",
                                                "tickets.sqlite"};

/// Whether a folder is this service's, so that its mode may be changed.
bool isOwn(const fs::path& folder)
{
    return fs::is_empty(folder) || fs::exists(folder / kDatabases.front());
}

} // namespace

bool prepareDataFolder(const fs::path& folder)
{
    constexpr fs::perms ownerOnly = fs::perms::owner_read | fs::perms::owner_write;
    if (!platform::makePrivateFolder(folder))
        return false;
    if (isOwn(folder))
        fs::permissions(folder, fs::perms::owner_all);
    for (const char* name : kDatabases) {
        // An empty file is a new database; what SQLite puts beside it gets its mode.
        (void)platform::ContentFile::openOrCreate(folder / name);
        for (const char* beside : {"", "-wal", "-shm"}) {
            if (const fs::path file = folder / (std::string(name) + beside); fs::exists(file))
                fs::permissions(file, ownerOnly);
        }
    }
    return true;
}

} // namespace stowline::devserver
