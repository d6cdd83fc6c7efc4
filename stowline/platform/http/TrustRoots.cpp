#include "stowline/platform/http/TrustRoots.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

/// Where distributions keep them.
constexpr std::array<const char*, 2> kFolders{"/etc/ssl/certs", "/etc/pki/tls/certs"};
constexpr std::array<const char*, 5> kBundles{
    "/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
    "/etc/ssl/ca-bundle.pem", "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",
    "/etc/ssl/cert.pem"};

std::string variable(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

/// As "4042bcee.0": eight hexadecimal digits, a full stop and a number.
bool isHashedName(std::string_view name)
{
    constexpr std::size_t digits = 8;
    constexpr std::string_view hexadecimal = "0123456789abcdef";
    return name.size() > digits + 1 && name.find_first_not_of(hexadecimal) == digits &&
           name[digits] == '.' &&
           name.find_first_not_of("0123456789", digits + 1) == std::string_view::npos;
}

bool hasHashedNames(const fs::path& folder)
{
    std::error_code fault;
    for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        if (isHashedName(entry->path().filename().native()))
            return true;
    }
    return false;
}

/// @param bundle of the system; may be empty
TrustRoots systemRoots(const std::string& bundle)
{
    static const std::string folder = [] {
        const auto* const found = std::ranges::find_if(kFolders, hasHashedNames);
        return std::string(found == kFolders.end() ? "" : *found);
    }();
    if (folder.empty())
        return {.file = bundle, .folder = {}, .spareFile = {}};
    return {.file = {}, .folder = folder, .spareFile = bundle};
}

std::string systemBundle()
{
    const auto* const found = std::ranges::find_if(kBundles, [](const char* path) {
        std::error_code fault;
        return fs::is_regular_file(path, fault);
    });
    return found == kBundles.end() ? "" : *found;
}

} // namespace

TrustRoots trustRoots()
{
    const std::string file = variable("SSL_CERT_FILE");
    const std::string folder = variable("SSL_CERT_DIR");
    const bool isSystems = std::ranges::find(kBundles, file) != kBundles.end();
    if (folder.empty() && isSystems)
        return systemRoots(file);
    if (!file.empty() || !folder.empty())
        return {.file = file, .folder = folder, .spareFile = {}};
    static const std::string bundle = systemBundle();
    return systemRoots(bundle);
}

} // namespace stowline::platform
