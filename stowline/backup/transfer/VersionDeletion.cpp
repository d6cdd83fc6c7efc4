#include "stowline/backup/transfer/VersionDeletion.h"

#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline::backup {

std::optional<StepFailure> deletionOf(const Account& account, const std::string& list, Tries& tries)
{
    if (list.empty())
        return StepFailure{StepEnd::refused, "The service does not say how it is deleted."};
    return tries.repeat(
        [&](std::optional<Error>& error) {
            const FailureWatch watch;
            const bool isDone = WebServiceBroker::deleteFileVersionWithFileListID(
                list, account.username, account.server);
            if (!isDone)
                error = watch.failure();
            return isDone;
        },
        1);
}

} // namespace stowline::backup
