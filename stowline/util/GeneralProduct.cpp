#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/values/Format.h"
#include "stowline/util/Base64.h"
#include "stowline/util/General.h"

#include <algorithm>

namespace stowline {

namespace {

constexpr std::uint32_t kEncodedLineLength = 2147483647;

constexpr std::uint64_t kReportUnit = 32768;
constexpr std::uint64_t kLargeSize = 65536000;

} // namespace

std::optional<std::string> General::productName()
{
    (void)launchTime();
    return platform::Bundle::infoString("CFBundleName");
}

std::optional<std::string> General::productVersion()
{
    (void)launchTime();
    return platform::Bundle::infoString("CFBundleShortVersionString");
}

std::string General::userAgent()
{
    return platform::formatText("Mac/%@", productVersion()); // sets the launch time
}

Date General::launchTime()
{
    static const Date firstUse = platform::currentDate();
    return firstUse;
}

std::uint64_t General::progressSizeForSize(std::uint64_t sizeInBytes)
{
    (void)launchTime();
    const std::uint64_t share = sizeInBytes / (sizeInBytes < kLargeSize ? 100 : 1000);
    return std::max(share - share % kReportUnit, kReportUnit);
}

std::string General::base64EncodeString(std::string_view text)
{
    (void)launchTime();
    return Base64::base64EncodingWithLineLength(text, kEncodedLineLength);
}

} // namespace stowline
