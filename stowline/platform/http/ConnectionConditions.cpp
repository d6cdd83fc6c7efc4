#include "stowline/platform/http/ConnectionConditions.h"

#include "stowline/platform/text/Url.h"

#include <array>
#include <cstdlib>
#include <sys/stat.h>

namespace stowline::platform {

namespace {

/// As libcurl reads them.
constexpr std::array<const char*, 7> kProxyVariables{
    "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"};

/// Which file it is, and when it was changed.
std::string stampOf(const std::string& path)
{
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0)
        return path + "\n-";
    std::string stamp = path + '\n';
    for (const auto number :
         {static_cast<long long>(status.st_dev), static_cast<long long>(status.st_ino),
          static_cast<long long>(status.st_size), static_cast<long long>(status.st_mtim.tv_sec),
          static_cast<long long>(status.st_mtim.tv_nsec),
          static_cast<long long>(status.st_ctim.tv_sec),
          static_cast<long long>(status.st_ctim.tv_nsec)})
        stamp += std::to_string(number) + ' ';
    return stamp;
}

} // namespace

std::string connectionConditions(const HttpRequest& request, const TrustRoots& roots)
{
    std::string conditions = request.usesNoProxy ? "no proxy" : request.proxy;
    for (const char* name : kProxyVariables) {
        const char* value = std::getenv(name);
        conditions += '\n';
        conditions += value ? value : "";
    }
    const auto origin = originOf(request.url);
    if (!origin || origin->scheme != "https")
        return conditions;
    for (const std::string* path : {&roots.file, &roots.folder, &roots.spareFile})
        conditions += '\n' + stampOf(*path);
    return conditions;
}

} // namespace stowline::platform
