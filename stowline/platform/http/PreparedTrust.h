// Trust roots that are read before they are needed, for processes that are forked later.
#pragma once

#include "stowline/platform/http/TrustRoots.h"

#include <curl/curl.h>

namespace stowline::platform {

/// Reads the file of trustRoots() certificate by certificate: a bundle of the usual size takes some
/// 15 ms of processor time, which every forked child would spend again. A file that is empty, holds
/// anything but certificates, or cannot be read to its end is left to each exchange. For processes
/// of one thread.
/// @return whether there is more to read
bool prepareTrust();

/// Has a handle verify servers with the roots that were prepared, which are what the file held when
/// it was read; leaves the handle alone where those in question are others or not read to the end.
/// @return whether the prepared ones will be used
[[nodiscard]] bool usePreparedTrust(CURL* handle, const TrustRoots& roots);

} // namespace stowline::platform
