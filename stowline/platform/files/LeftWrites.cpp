#include "stowline/platform/files/LeftWrites.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <system_error>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

bool isLeftName(std::string_view name)
{
    constexpr std::size_t letters = 6; // of mkstemp(3)
    constexpr std::string_view drawn =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    return name.size() > letters + 1 && name[name.size() - letters - 1] == '.' &&
           name.substr(name.size() - letters).find_first_not_of(drawn) == std::string_view::npos;
}

} // namespace

void removeLeftWrites(const fs::path& folder)
{
    constexpr std::chrono::hours atWork{1};
    for (const std::string& name : namesInFolder(folder)) {
        std::error_code fault;
        if (!isLeftName(name) || !fs::is_regular_file(fs::symlink_status(folder / name, fault)))
            continue;
        const auto written = fs::last_write_time(folder / name, fault);
        if (!fault && fs::file_time_type::clock::now() - written > atWork)
            fs::remove(folder / name, fault);
    }
}

} // namespace stowline::platform
