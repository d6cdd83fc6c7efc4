// What people are told of an exception that no part of the engine knows.
#pragma once

#include <string>

namespace stowline::backup {

/// The exception that is being handled, as a sentence: no memory, no thread, else what it says.
/// Only in a catch block.
[[nodiscard]] std::string sentenceOfHandledException();

} // namespace stowline::backup
