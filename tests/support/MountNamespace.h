// File systems of a test's own.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace stowline::test {

/// Puts this process into a mount namespace whose changes nobody else sees. Before it has threads.
/// @return why that cannot be done here; absent when it is done.
[[nodiscard]] std::optional<std::string> enterMountNamespace();

/// One mount, gone with this object. The folder is made; the constructors throw when mounting
/// fails.
class Mount {
public:
    /// An empty file system in memory.
    /// @param options as "size=1m"
    static Mount memory(const std::filesystem::path& folder, const std::string& options = {});

    /// An empty file system in memory that keeps no extended attributes.
    static Mount plainMemory(const std::filesystem::path& folder);

    /// A folder shown a second time at another place.
    static Mount again(const std::filesystem::path& shown, const std::filesystem::path& folder);

    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;
    ~Mount();

private:
    Mount(const char* source, std::filesystem::path folder, const char* type, unsigned long flags,
          const std::string& options);
    const std::filesystem::path folder_;
};

} // namespace stowline::test
