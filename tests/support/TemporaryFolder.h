// A folder for one test, gone with it.
#pragma once

#include "stowline/platform/desktop/MachineIdentity.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace stowline::test {

class TemporaryFolder {
public:
    TemporaryFolder()
        : path_(std::filesystem::temp_directory_path() /
                ("stowline-test-" + platform::randomUuid().value()))
    {
        std::filesystem::create_directories(path_);
    }
    ~TemporaryFolder()
    {
        std::error_code fault;
        std::filesystem::remove_all(path_, fault);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// Writes a file below the folder, with the folders on the way. @return its path
    std::filesystem::path write(const std::string& name, std::string_view content) const
    {
        const auto file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path path_;
};

} // namespace stowline::test
