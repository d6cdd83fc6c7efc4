// What each kind of failure means for people.
#pragma once

#include "stowline/platform/values/Error.h"

#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline {

/// What happened and what to do about it, in sentences. Pure; throws std::bad_alloc alone.
/// @param host whom the call was for ("backup.example.com", or "the service")
[[nodiscard]] std::string sentenceFor(FailureKind kind, std::string_view host);

} // namespace stowline
#pragma GCC visibility pop
