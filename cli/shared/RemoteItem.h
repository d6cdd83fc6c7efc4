// How an entry of a listing is shown.
#pragma once

#include "stowline/platform/values/Value.h"

#include <string>

namespace stowline::cli {

/// Prints the heading of a table of files and folders.
void showRemoteHeading();

/// Prints a file or folder: its number, size, date and name.
/// @param withFolder the name with the path before it, and the machine
void showRemoteItem(const Dictionary& entry, bool withFolder);

/// A path as the user may give it, relative to the current folder or absolute, as the service knows
/// it.
[[nodiscard]] std::string remotePathFor(const std::string& given);

} // namespace stowline::cli
