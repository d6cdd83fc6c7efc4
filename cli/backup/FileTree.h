// What a backup is to hold: the files below the named paths.
#pragma once

#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace stowline::cli {

/// Which items of a tree are taken. A pattern without a slash is for names, one with a slash for
/// the path below the named folder; see platform::matchesGlob().
struct TreeRules {
    std::vector<std::string> include; ///< when there are any, files must match one
    std::vector<std::string> exclude; ///< folders too, with everything in them
    bool skipsHidden = false;
};

/// A regular file as it was when the tree was walked.
struct LocalFile {
    std::string path; ///< absolute; any bytes
    std::uint64_t size = 0;
    Date modified;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    /// Tells apart contents that size and date do not; empty when they do.
    std::string contentMark = {};
};

/// A folder that people are shown as one file.
struct LocalPackage {
    std::string path;
    std::uint64_t bytes = 0; ///< of the files taken from it
};

struct FileTree {
    std::vector<LocalFile> files; ///< by folder, in the byte order of names
    std::vector<LocalPackage> packages;
    std::vector<std::string> faults;  ///< sentences: what could not be read
    std::vector<std::string> missing; ///< named paths at which there is nothing
    std::size_t leftOut = 0;          ///< links, devices, pipes and sockets
};

/// Walks the named paths. Links are not followed and not taken, nor is what is no regular file. An
/// item that is named twice is taken once.
[[nodiscard]] FileTree walk(const std::vector<std::string>& paths, const TreeRules& rules);

/// The file at a path; absent when there is no regular file.
[[nodiscard]] std::optional<LocalFile> localFile(const std::string& path);

} // namespace stowline::cli
