// What a process leaves of a file that it was writing when it was killed.
#pragma once

#include <filesystem>

namespace stowline::platform {

/// Removes from a folder what writeFileAtomically() and replaceFile() leave there when their
/// process is killed: regular files named as another one and six more letters or digits behind a
/// full stop ("name.a1B2c3") that no process is writing. For folders alone in which nobody else
/// gives names. What cannot be removed stays; so does all where the file system has no locks.
void removeLeftWrites(const std::filesystem::path& folder);

} // namespace stowline::platform
