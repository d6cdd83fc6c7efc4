// One at a time, over all processes.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"

#include <filesystem>
#include <optional>

namespace stowline::platform {

/// A lock that is held as long as the object exists and the process runs, however that ends
/// (flock(2)). The file stays.
class LockFile {
public:
    /// @return absent when somebody else holds it (`error` is 0 then), or the file cannot be made
    ///         or locked (`error` is the system's number)
    [[nodiscard]] static std::optional<LockFile> take(const std::filesystem::path& path,
                                                      int& error);
    [[nodiscard]] static std::optional<LockFile> take(const std::filesystem::path& path);

private:
    explicit LockFile(FileDescriptor file) : file_(std::move(file)) {}
    FileDescriptor file_;
};

} // namespace stowline::platform
