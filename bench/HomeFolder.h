// A home folder as a person may have it, made: always the same for a size.
#pragma once

#include <cstdint>
#include <filesystem>

namespace stowline::bench {

struct HomeFolder {
    std::filesystem::path top;
    std::uint64_t files = 0;
    std::uint64_t bytes = 0; ///< of all files together, within a percent
};

/// Few large files and many small ones: their sizes are log-normal, with a median of some 6 % of
/// the mean, and none has more than a hundredth of all bytes. Forty in a folder; the folders are
/// below Documents, Projects and Mail (text, which packs to some half), Pictures, Music and Films
/// (noise, which does not pack).
void makeHomeFolder(const HomeFolder& home);

/// What a day does to it: four files in a thousand get other content at a place within, and a tenth
/// more; two in a thousand come, one in a thousand goes; a megabyte is added to the largest; one
/// folder gets another name. At least one of each.
void passADay(const HomeFolder& home);

} // namespace stowline::bench
