#include "stowline/platform/files/FileManager.h"

#include <filesystem>

namespace stowline::platform {

bool FileManager::createDirectoryAtPath(const std::string& path, ErrorSlot error) const
{
    std::error_code fault;
    if (path.find('\0') != std::string::npos)
        fault = std::make_error_code(std::errc::invalid_argument);
    else
        std::filesystem::create_directories(path, fault);
    if (!fault && !std::filesystem::is_directory(path, fault))
        fault = std::make_error_code(std::errc::not_a_directory);
    if (fault && error)
        *error = makeError(kFileErrorDomain, fault.value(),
                           "The folder " + path + " cannot be made: " + fault.message() +
                               ". Please check the folders above it.");
    return !fault;
}

} // namespace stowline::platform
