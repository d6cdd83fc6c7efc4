// The standard streams of a program that talks to its parent over pipes.
#pragma once

#include <span>
#include <string_view>

namespace stowline::platform {

/// Takes those of the descriptors 0 to 2 that the program was started without, so that nothing that
/// it opens later gets their numbers and is then taken for standard input, output or error. Reading
/// and writing them fails as before. First thing in main(), before anything is opened.
void takeStandardDescriptors();

/// One write call to standard output, begun anew only when a signal came before the first byte.
/// @return whether it took every byte.
[[nodiscard]] bool writeOnceToStandardOutput(std::string_view bytes);

/// Writes pieces of text to standard error as if they were one, in one call where the system takes
/// them all at once. Failures have nobody to be told to.
void writeGatheredToStandardError(std::span<const std::string_view> pieces);

/// After this the reader of standard output finds its end.
void closeStandardOutput();

/// Waits until the parent has written to standard input (4 bytes as a rule; a short read counts
/// too), or has closed it.
void awaitReleaseBytes();

} // namespace stowline::platform
