#include "cli/shared/Grace.h"

#include "cli/shared/HumanText.h"
#include "cli/shared/Output.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline::cli {

namespace {

/// "7 days", "36 hours".
std::string lengthText(std::uint64_t seconds)
{
    constexpr std::uint64_t hour = 3600;
    constexpr std::uint64_t day = 24 * hour;
    return seconds % day == 0 ? countText(seconds / day, "day", "days")
                              : countText(seconds / hour, "hour", "hours");
}

} // namespace

std::optional<Grace> graceOf(const Session& session)
{
    if (!WebServiceBroker::isUndeletingConfigured())
        return std::nullopt;
    const auto told = WebServiceBroker::deletedFilesForUsername(
        session.username, session.password, "", "", std::nullopt, 0, 0, session.server, nullptr);
    return told ? std::optional(Grace{told->graceSeconds}) : std::nullopt;
}

void noteGrace(const Session& session)
{
    const auto grace = graceOf(session);
    if (grace && grace->seconds == 0)
        output().note("The service keeps nothing of what is deleted: it cannot be recovered.");
    else if (grace)
        output().note("For " + lengthText(grace->seconds) +
                      " \"stowline undelete\" brings it back; its space is freed after that.");
}

} // namespace stowline::cli
