// What was deleted and is still kept by the service, and what bringing it back comes to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// One deleted version.
struct DeletedFile {
    std::string versionId;
    std::string systemName;
    std::string folder; ///< as the service keeps paths
    std::string name;
    std::uint64_t size = 0; ///< bytes of the file
    std::string deletedAt;  ///< universal time, as "2026-01-31 23:59:59"; empty: not told
    std::string keptUntil;  ///< the same
};

/// One page, and figures of all pages together.
struct DeletedFiles {
    std::vector<DeletedFile> files; ///< the oldest version first
    std::uint64_t totalCount = 0;
    std::uint64_t totalSize = 0;    ///< bytes of content
    std::uint64_t graceSeconds = 0; ///< for how long what is deleted is kept; 0: not at all
    std::uint64_t left = 0;         ///< versions that cannot come back now, on no page
};

/// What one call brought back.
struct UndeletedFiles {
    std::uint64_t undeleted = 0; ///< versions
    std::uint64_t size = 0;      ///< bytes of their content
    std::uint64_t remaining = 0; ///< 0: another call would bring nothing back
    // Once nothing remains:
    std::uint64_t left = 0;       ///< versions that cannot come back now
    std::uint64_t lost = 0;       ///< versions whose content is not there any more
    std::uint64_t forgetting = 0; ///< runs of which a note says still that they are being forgotten
};

} // namespace stowline
#pragma GCC visibility pop
