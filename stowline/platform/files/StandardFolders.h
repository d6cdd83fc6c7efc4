// The folders that a desktop gives each user.
#pragma once

#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Kinds of folders, in numbers of our own.
enum class StandardFolder : unsigned {
    documents = 1,
    library, ///< where programs keep a user's data
    desktop,
    downloads,
    movies,
    music,
    pictures,
    sharedPublic,
    applicationSupport, ///< the same as library: the desktop keeps them in one folder
};

/// Whose folders; may be combined.
enum StandardDomain : unsigned {
    kUserDomain = 1,
    kLocalDomain = 2,
    kNetworkDomain = 4,
    kSystemDomain = 8,
};

/// The current user's folder of a kind, as the desktop's configuration has it (user-dirs.dirs,
/// read anew on each call), else under its usual English name in the home directory. Library and
/// application support are the data folder of the base-directory convention (XDG_DATA_HOME). The
/// folder need not exist. Any thread.
/// @return absent when the user has switched that folder off (by pointing it at the home
///         directory), when there is no home directory, or the kind is none of the above.
[[nodiscard]] std::optional<std::string> userFolder(StandardFolder kind);

/// The first folder of a kind in some domains; only the user's domain has any.
[[nodiscard]] std::optional<std::string> standardFolder(StandardFolder kind, unsigned domains);

} // namespace stowline::platform
#pragma GCC visibility pop
