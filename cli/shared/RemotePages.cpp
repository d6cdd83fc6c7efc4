#include "cli/shared/RemotePages.h"

#include "cli/shared/Interruption.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>

namespace stowline::cli {

namespace {

using GetPage = std::function<std::optional<Array>(std::int64_t start, std::int64_t count,
                                                   std::int64_t* total)>;

std::optional<std::int64_t> forEach(const RemoteListing& listing, const TakeEntry& take,
                                    const GetPage& getPage)
{
    std::int64_t total = 0;
    std::int64_t taken = 0;
    const std::int64_t wanted = listing.limit.value_or(INT64_MAX);
    do {
        const auto page = getPage(taken, std::min(listing.pageSize, wanted - taken), &total);
        if (!page || Interruptible::request())
            return std::nullopt;
        for (const Value& entry : *page) {
            if (const Dictionary* fields = entry.dictionary())
                take(*fields);
        }
        if (page->empty())
            break;
        taken += static_cast<std::int64_t>(page->size());
    } while (taken < total && taken < wanted);
    return total;
}

} // namespace

std::optional<std::int64_t> forEachInFolder(const Session& session, const RemoteListing& listing,
                                            const TakeEntry& take, ErrorSlot error)
{
    return forEach(listing, take, [&](std::int64_t start, std::int64_t count, std::int64_t* total) {
        return WebServiceBroker::getAccountFilesAndFoldersForUserName(
            session.username, session.password, session.server, listing.systemName, listing.path,
            listing.sortField, listing.isAscending, start, count, total, error);
    });
}

std::optional<std::int64_t> forEachMatch(const Session& session, const RemoteListing& listing,
                                         const std::string& text, const TakeEntry& take,
                                         ErrorSlot error)
{
    return forEach(listing, take, [&](std::int64_t start, std::int64_t count, std::int64_t* total) {
        return WebServiceBroker::searchFilesForUsername(
            session.username, session.password, session.server, listing.systemName, listing.path,
            text, start, count, total, error);
    });
}

} // namespace stowline::cli
