// Which headers of a response are handed back.
#pragma once

#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/values/Value.h"

namespace stowline {

/// The headers of a response that a list names, in any case, under the list's spelling. Of several
/// list entries that differ only in case the first counts; entries that are not text count for
/// nothing. A header that came in several lines is one value, joined with ", " (RFC 9110 section
/// 5.3). Reentrant.
/// @return spelling to value, a string
[[nodiscard]] Dictionary listedHeaders(const platform::HttpResponseMessage& response,
                                       const Array& names);

} // namespace stowline
