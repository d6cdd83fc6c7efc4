// Finding and making folders, with errors as objects.
#pragma once

#include "stowline/platform/files/StandardFolders.h"
#include "stowline/platform/values/Error.h"

#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Domain of a file manager's errors; their code is the system's error number.
inline constexpr const char* kFileErrorDomain = "com.Stowline.Files";

/// Stateless; any thread.
class FileManager {
public:
    /// The first folder of a kind in some domains; see StandardFolders.h.
    [[nodiscard]] std::optional<std::string> folder(StandardFolder kind, unsigned domains) const
    {
        return standardFolder(kind, domains);
    }

    /// Makes a folder and what is missing above it, with the mode that new folders get. One that is
    /// there already is success.
    /// @param error filled when it fails, else left alone
    bool createDirectoryAtPath(const std::string& path, ErrorSlot error) const;
};

} // namespace stowline::platform
#pragma GCC visibility pop
