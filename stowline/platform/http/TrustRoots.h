// Whose certificates are trusted.
#pragma once

#include <string>

namespace stowline::platform {

/// Where certificates of authorities are found: a file with all of them, a folder in which each can
/// be looked up by the hash of its name (openssl-rehash(1)), or both; empty means none.
struct TrustRoots {
    std::string file;
    std::string folder;
    std::string spareFile; ///< to be tried with the file's place when an issuer is not known there
};

/// What SSL_CERT_FILE and SSL_CERT_DIR name, instead of the system's; an empty value is none. When
/// neither is set, or the file alone and it is the system's, the system's: its folder where that
/// has hashed names, with the bundle to spare, since loading a bundle takes some 15 ms of processor
/// time a process; else its bundle alone, as in images that carry nothing else. Looks at the system
/// once a process. Any thread.
/// @return nothing where the system has none in a place that is known; then what the TLS library
///         was built with counts
[[nodiscard]] TrustRoots trustRoots();

} // namespace stowline::platform
