// What a child inherits by way of a nursery as it was when that began, and by itself as it is now.
#pragma once

#include "stowline/platform/values/Outcome.h"

#include <string>

namespace stowline::platform {

/// A few words for the log.
struct NoNursery {
    std::string reason;
};

/// Everything about this process and the system that a child started now would find and that could
/// be another's in a child of a nursery: the program's file and Info.plist, trust roots, zone data
/// and the settings of TLS as files (which they are and when they were changed, not what is in
/// them); of the calling thread user, groups, rights, filters of system calls, namespaces, folder,
/// root, umask, processors, niceness; and group, session, limits and environment. Two equal texts
/// mean that a child is the same either way. Any thread.
/// @return or why this process and program can have no nursery: it is not the build that this
///         library is of, the system does not tell, or what ends without a parent would become a
///         child of this very process
[[nodiscard]] Outcome<std::string, NoNursery> nurseryConditions(const std::string& program);

} // namespace stowline::platform
