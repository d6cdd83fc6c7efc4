#include "stowline/platform/text/HostName.h"

#include "stowline/platform/text/Url.h"

#include <algorithm>
#include <array>
#include <memory>
#include <unicode/uidna.h>

namespace stowline::platform {

namespace {

bool isAscii(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return static_cast<signed char>(c) >= 0; });
}

struct IdnaDeleter {
    void operator()(UIDNA* idna) const { uidna_close(idna); }
};

} // namespace

std::string asciiHostName(std::string_view name)
{
    if (isAscii(name))
        return std::string(name);
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UIDNA, IdnaDeleter> idna(uidna_openUTS46(
        UIDNA_NONTRANSITIONAL_TO_ASCII | UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ, &status));
    constexpr std::size_t room = 512; // a name has 253 characters at most
    std::array<char, room> ascii{};
    UIDNAInfo info = UIDNA_INFO_INITIALIZER;
    const auto length =
        uidna_nameToASCII_UTF8(idna.get(), name.data(), static_cast<std::int32_t>(name.size()),
                               ascii.data(), static_cast<std::int32_t>(room), &info, &status);
    if (U_FAILURE(status) || info.errors != 0 || length <= 0)
        return std::string(name);
    return {ascii.data(), static_cast<std::size_t>(length)};
}

std::string withAsciiHost(std::string_view url)
{
    constexpr std::string_view slashes = "://";
    const auto scheme = url.find(slashes);
    if (scheme == std::string_view::npos || isAscii(url))
        return std::string(url);
    auto begin = scheme + slashes.size();
    const auto end = std::min(url.find_first_of("/?#\\", begin), url.size());
    if (const auto user = url.substr(begin, end - begin).rfind('@'); user != std::string_view::npos)
        begin += user + 1;
    const std::string_view host = url.substr(begin, end - begin);
    const std::string_view name = host.substr(0, host.find(':'));
    return std::string(url.substr(0, begin)) + asciiHostName(name) +
           std::string(url.substr(begin + name.size()));
}

std::string addressForCalls(std::string_view url)
{
    return percentEscaped(withAsciiHost(url));
}

} // namespace stowline::platform
