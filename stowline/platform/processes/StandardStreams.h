// The standard streams of a program.
#pragma once

#include <span>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Takes those of the descriptors 0 to 2 that the program was started without, so that nothing that
/// it opens later gets their numbers and is then taken for standard input, output or error. Reading
/// and writing them fails as before. First thing in main(), before anything is opened.
void takeStandardDescriptors();

/// Writes all bytes to standard output, going on after interruptions and partial writes.
/// @return false when it does not take them
[[nodiscard]] bool writeToStandardOutput(std::string_view bytes);

/// Writes pieces of text to standard error as if they were one, in one call where the system takes
/// them all at once. Failures have nobody to be told to.
void writeGatheredToStandardError(std::span<const std::string_view> pieces);

} // namespace stowline::platform
#pragma GCC visibility pop
