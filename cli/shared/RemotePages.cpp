#include "cli/shared/RemotePages.h"

#include "cli/shared/Interruption.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

#include <algorithm>

namespace stowline::cli {

namespace {

using GetPage = std::function<std::optional<Array>(std::int64_t start, std::int64_t count,
                                                   std::int64_t* total)>;

/// Whether it is what the engine keeps of itself on the service: the records of runs.
bool isOfEngine(const Dictionary& entry)
{
    const std::string folder = platform::findText(entry, "Path");
    const std::string path =
        (folder.ends_with('/') ? folder : folder + "/") + platform::findText(entry, "Name") + "/";
    return path.starts_with("/=stowline=/");
}

Error brokenOff(std::int64_t taken, std::int64_t total)
{
    return platform::makeError(
        std::string(kServiceErrorDomain), 0,
        fmt::format("The service's list breaks off: {} of {} entries came. Please try again.",
                    taken, total),
        FailureKind::unreadableAnswer);
}

std::optional<std::int64_t> forEach(const RemoteListing& listing, const TakeEntry& take,
                                    const GetPage& getPage, ErrorSlot error)
{
    std::int64_t total = 0;
    std::int64_t taken = 0;
    std::int64_t hidden = 0;
    const std::int64_t wanted = listing.limit.value_or(INT64_MAX);
    do {
        const auto page =
            getPage(taken, std::min(listing.pageSize, wanted - (taken - hidden)), &total);
        if (!page || Interruptible::request())
            return std::nullopt;
        for (const Value& entry : *page) {
            const Dictionary* fields = entry.dictionary();
            if (fields && isOfEngine(*fields))
                ++hidden;
            else if (fields)
                take(*fields);
        }
        if (page->empty() && taken < total) {
            if (error)
                *error = brokenOff(taken, total);
            return std::nullopt;
        }
        taken += static_cast<std::int64_t>(page->size());
    } while (taken < total && taken - hidden < wanted);
    return total - hidden;
}

} // namespace

std::optional<std::int64_t> forEachInFolder(const Session& session, const RemoteListing& listing,
                                            const TakeEntry& take, ErrorSlot error)
{
    return forEach(
        listing, take,
        [&](std::int64_t start, std::int64_t count, std::int64_t* total) {
            return WebServiceBroker::getAccountFilesAndFoldersForUserName(
                session.username, session.password, session.server, listing.systemName,
                listing.path, listing.sortField, listing.isAscending, start, count, total, error);
        },
        error);
}

std::optional<std::int64_t> forEachMatch(const Session& session, const RemoteListing& listing,
                                         const std::string& text, const TakeEntry& take,
                                         ErrorSlot error)
{
    return forEach(
        listing, take,
        [&](std::int64_t start, std::int64_t count, std::int64_t* total) {
            return WebServiceBroker::searchFilesForUsername(
                session.username, session.password, session.server, listing.systemName,
                listing.path, text, start, count, total, error);
        },
        error);
}

} // namespace stowline::cli
