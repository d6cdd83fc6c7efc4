// What a process leaves of a file that it was writing when it was killed.
#pragma once

#include <filesystem>

namespace stowline::platform {

/// Removes from a folder what writeFileAtomically() and replaceFile() leave there when their
/// process is killed: regular files named as another one and six more letters or digits behind a
/// full stop ("name.a1B2c3") in which nothing was written for an hour. For folders alone in which
/// nobody else gives names. What cannot be removed stays.
void removeLeftWrites(const std::filesystem::path& folder);

} // namespace stowline::platform
