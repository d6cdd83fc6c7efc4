#include "cli/commands/FolderRemoval.h"

#include "cli/shared/Grace.h"
#include "cli/shared/Interruption.h"
#include "cli/shared/Output.h"
#include "cli/shared/RemoteItem.h"
#include "cli/shared/RemotePages.h"
#include "cli/shared/RunOptions.h"
#include "cli/shared/ServiceFailure.h"
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/files/Files.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

#include <thread>

namespace stowline::cli {

namespace {

using std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

class Removal {
public:
    Removal(const Session& session, const FolderRemovalOptions& options)
        : session_(session), options_(options), path_(remotePathFor(options.path))
    {
    }

    ExitStatus run()
    {
        const FailureWatch watch;
        const auto guid = WebServiceBroker::beginDeleteFolderForUsername(
            session_.username, session_.password, options_.systemName, path_, session_.server);
        if (!guid)
            return callFailure(watch.failure(),
                               "The service did not start the deletion. Is anything stored of " +
                                   options_.path + " of the machine " + options_.systemName + "?",
                               "please check with \"stowline ls\" what is left.");
        noteFolder();
        const Interruptible interruptible;
        Interruptible::sayWhenLeft("Ended at once. The deletion may still be going on.");
        if (!follow(*guid))
            return output().fail(ExitStatus::temporary,
                                 "The deletion has not finished. It continues on the service; "
                                 "\"stowline ls\" shows what is left.");
        return end();
    }

private:
    /// What goes from here on is no loss for the next backups.
    void noteFolder() const
    {
        if (const auto state = platform::stateFolder())
            backup::noteDeletedFolder(*state,
                                      {.username = session_.username,
                                       .password = {},
                                       .server = {},
                                       .systemName = options_.systemName},
                                      storedPathFor(options_.path));
    }

    /// @return whether it is over
    bool follow(const std::string& guid)
    {
        const auto start = steady_clock::now();
        while (!isOver(guid)) {
            if (Seconds(steady_clock::now() - start).count() > options_.followSeconds)
                return false;
            pause(guid);
        }
        return true;
    }

    bool isOver(const std::string& guid) const
    {
        return WebServiceBroker::checkDeleteFolderForUsername(session_.username, session_.password,
                                                              guid, session_.server);
    }

    /// Waits for the next question; cancels when asked to.
    void pause(const std::string& guid)
    {
        const auto length =
            std::chrono::duration_cast<steady_clock::duration>(Seconds(options_.pollSeconds));
        if (isCancelling_) {
            std::this_thread::sleep_for(length);
        } else if (Interruptible::awaitRequest(length)) {
            isCancelling_ = true;
            output().note("Cancelling. Press Ctrl-C again to leave at once.");
            WebServiceBroker::cancelDeleteFolderForUsername(session_.username, session_.password,
                                                            guid, session_.server);
        }
    }

    /// The service says that it is over, not how; what is left of the folder tells.
    ExitStatus end()
    {
        std::int64_t left = 0;
        std::optional<Error> error;
        const auto page = WebServiceBroker::getAccountFilesAndFoldersForUserName(
            session_.username, session_.password, session_.server, options_.systemName, path_,
            "Name", true, 0, 1, &left, &error);
        if (page && left == 0) {
            noteGrace(session_);
            if (path_ == "/")
                output().note(
                    "The records of its runs are deleted too. \"stowline undelete\" brings "
                    "them back; without them the next backup needs --rebuild-index.");
            return output().finish(ExitStatus::done, {{"deleted", options_.path}});
        }
        const std::string some = "Some of " + options_.path +
                                 " is left; what was deleted before "
                                 "stays deleted.";
        if (const auto status = Interruptible::request())
            return output().fail(*status, "The deletion was cancelled. " + some);
        return output().fail(ExitStatus::temporary,
                             "The service ended the deletion, or stopped reporting on it. " + some);
    }

    const Session& session_;
    const FolderRemovalOptions& options_;
    const std::string path_;
    bool isCancelling_ = false;
};

} // namespace

ExitStatus removeFolder(const Session& session, const FolderRemovalOptions& options)
{
    return Removal(session, options).run();
}

} // namespace stowline::cli
