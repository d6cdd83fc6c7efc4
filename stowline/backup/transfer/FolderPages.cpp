#include "stowline/backup/transfer/FolderPages.h"

#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

namespace stowline::backup {

namespace {

Error brokenOff(std::int64_t taken, std::int64_t total)
{
    return platform::makeError(
        std::string(kServiceErrorDomain), 0,
        fmt::format("The service's list breaks off: {} of {} entries came.", taken, total),
        FailureKind::unreadableAnswer);
}

} // namespace

std::optional<StepFailure> forEachEntry(const Account& account, Tries& tries,
                                        const std::string& folder,
                                        const std::function<void(const Dictionary&)>& take,
                                        std::int64_t pageSize)
{
    std::int64_t total = 0;
    std::int64_t taken = 0;
    do {
        std::optional<Array> page;
        auto failure = tries.repeat([&](std::optional<Error>& error) {
            page = WebServiceBroker::getAccountFilesAndFoldersForUserName(
                account.username, account.password, account.server, account.systemName, folder,
                "Name", true, taken, pageSize, &total, &error);
            if (page && page->empty() && taken < total) {
                error = brokenOff(taken, total);
                return false;
            }
            return page.has_value();
        });
        if (failure)
            return failure;
        for (const Value& entry : *page) {
            if (const Dictionary* fields = entry.dictionary())
                take(*fields);
        }
        taken += static_cast<std::int64_t>(page->size());
    } while (taken < total);
    return std::nullopt;
}

} // namespace stowline::backup
