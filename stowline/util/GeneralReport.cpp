// The texts of the e-mail that reports a backup.
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/Format.h"
#include "stowline/util/General.h"

#include <array>

namespace stowline {

namespace {

constexpr const char* kTemplate = "backupReportEmailTemplate.html";

std::string decimal(std::uint64_t number)
{
    return platform::formatText("%qu", number);
}

} // namespace

platform::DateFormatter General::emailReportDateFormatter()
{
    (void)launchTime();
    return platform::DateFormatter("M/d/yy, h:mm a");
}

std::string General::createEmailReportSubjectWithAppName(std::string_view appName, Date reportDate)
{
    return platform::formatText("%@ - Backup Report for %@", appName,
                                emailReportDateFormatter().stringFromDate(reportDate));
}

std::optional<std::string> General::createEmailReportHTMLBodyWithAppName(
    std::string_view appName, Date reportDate, std::string_view username, std::string_view machine,
    Date backupDate, std::uint64_t numNotChanged, std::uint64_t numBackedUp,
    std::uint64_t numFailed, std::uint64_t numProcessed, std::uint64_t sizeTransfered)
{
    (void)launchTime();
    auto text = platform::readFile(platform::Bundle::resourceFolder() / kTemplate);
    if (!text || !platform::isValidUtf8(*text))
        return std::nullopt;
    const platform::DateFormatter dates = emailReportDateFormatter();
    // The order is part of the behaviour: a value may hold the marker of a later line.
    const std::array<std::pair<std::string_view, std::string>, 10> markers{{
        {"||AppCaption||", std::string(appName)},
        {"||date||", dates.stringFromDate(reportDate)},
        {"||username||", std::string(username)},
        {"||backup date||", dates.stringFromDate(backupDate)},
        {"||num not changed||", decimal(numNotChanged)},
        {"||num backed up||", decimal(numBackedUp)},
        {"||num failed||", decimal(numFailed)},
        {"||num processed||", decimal(numProcessed)},
        {"||size transfered||", sizeString(sizeTransfered)},
        {"||machine name||", std::string(machine)},
    }};
    for (const auto& [marker, value] : markers)
        text = platform::replacingOccurrences(*text, marker, value);
    return text;
}

std::string General::sizeString(std::uint64_t byteCount)
{
    (void)launchTime();
    static constexpr std::array<const char*, 5> units{"Bytes", "KB", "MB", "GB", "TB"};
    constexpr std::uint64_t step = 1024;
    std::size_t unit = 0;
    unsigned shift = 0;
    while (unit + 1 < units.size() && byteCount >> shift >= step) {
        ++unit;
        shift += 10;
    }
    // The divisor is a 32-bit number whose shift wraps at 32: 256 for terabytes.
    const std::uint64_t divisor = std::uint32_t{1} << (shift % 32);
    const std::uint64_t hundredths = (byteCount & (divisor - 1)) * 100 / divisor;
    if (hundredths == 0)
        return platform::formatText("%llu %@", byteCount >> shift, units.at(unit));
    return platform::formatText("%llu.%02llu %@", byteCount >> shift, hundredths, units.at(unit));
}

} // namespace stowline
