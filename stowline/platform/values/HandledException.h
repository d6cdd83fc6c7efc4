// What an exception that nobody expects means: its kind, and a sentence for people. The one place
// where the guards at the edges (an operation of the service, a run of the engine, the object
// store) learn it from.
#pragma once

#include "stowline/platform/values/Error.h"

#include <string>
#include <string_view>

namespace stowline::platform {

/// What people are told when nothing can go on for want of memory, and of threads.
inline constexpr std::string_view kNoMemorySentence =
    "There is not enough memory. Please close programs and try again.";
inline constexpr std::string_view kNoThreadSentence =
    "The system has no threads left. Please close programs and try again.";

/// One exception, as far as anything is known of it.
struct HandledException {
    FailureKind kind = FailureKind::unexpected; ///< noMemory, noThread or unexpected
    /// For those two the sentence above, else what the exception says; empty when it says nothing.
    std::string sentence;
};

/// The exception that is being handled: std::bad_alloc is noMemory; a std::system_error of
/// "resource temporarily unavailable" (EAGAIN, as pthread_create(3) gives it) noThread; all else is
/// unexpected. Only in a catch block; any thread. Throws std::bad_alloc when there is no memory for
/// the sentence.
[[nodiscard]] HandledException handledException();

/// Its sentence alone, for guards that nothing may leave: empty where there is no memory for it.
/// Only in a catch block; any thread.
[[nodiscard]] std::string handledSentence() noexcept;

} // namespace stowline::platform
