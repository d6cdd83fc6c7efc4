// The folder that a self-test restores into, and takes away again.
#pragma once

#include "stowline/platform/files/LockFile.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stowline::backup {

/// One at a time for a profile, over all processes. Its folder is private (mode 0700 from the first
/// moment), has a name that nobody can know before, and goes with the object. Its path is noted in
/// the profile's folder before it is made: what a killed process leaves goes with the next take()
/// or sweep(), whatever the places are then. What is noted and has no such name is not heeded. No
/// link is ever followed in it, and nothing is touched that is not this user's private folder.
class TestFolder {
public:
    /// Keeps other self-tests of the profile away. Takes out what was left.
    /// @param candidates where the folder may be made, the best first; empty: the profile's folder,
    ///        then where the system has temporary files
    /// @return absent: `fault` says why
    [[nodiscard]] static std::optional<TestFolder>
    take(const std::filesystem::path& profileFolder, std::vector<std::filesystem::path> candidates,
         std::string& fault);
    /// Takes out what was left, unless a self-test is under way.
    static void sweep(const std::filesystem::path& profileFolder) noexcept;
    /// The folders that the profile's self-tests have, or have left: no backup is to read them.
    [[nodiscard]] static std::vector<std::filesystem::path>
    noted(const std::filesystem::path& profileFolder);

    TestFolder(TestFolder&&) noexcept = default;
    TestFolder& operator=(TestFolder&&) = delete;
    ~TestFolder();

    /// Bytes that may be put into the candidate that has the most room. A tenth of what is free is
    /// left, and a gibibyte where there are two, else half of it, but 64 MiB in any case.
    [[nodiscard]] std::uint64_t room() const;

    /// Makes the folder, in the first candidate with room for so many bytes where nobody else could
    /// put something in its place.
    /// @return empty: `fault` says why
    [[nodiscard]] std::filesystem::path make(std::uint64_t bytes, std::string& fault);
    /// Lets this user look at all that was put there, whatever the modes are.
    void loosen();
    /// Removes it with all that is in it, whatever the modes are.
    void clear() noexcept;

private:
    TestFolder(platform::LockFile lock, std::filesystem::path profileFolder,
               std::vector<std::filesystem::path> places);
    /// @return why it could not be made; empty: it is there
    [[nodiscard]] std::string makeIn(const std::filesystem::path& place);

    platform::LockFile lock_;
    std::filesystem::path profileFolder_;
    std::vector<std::filesystem::path> places_;
    std::filesystem::path made_;
};

} // namespace stowline::backup
