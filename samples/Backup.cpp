// A host program that backs up a folder: signs in, runs, says what failed.
//
//   STOWLINE_PASSWORD=… sample-backup BUNDLE-FOLDER USER STATE-FOLDER FOLDER
#include "stowline/backup/BackupRun.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"

#include <cstdlib>
#include <iostream>

namespace {

class Progress : public stowline::backup::BackupObserver {
public:
    void itemDone(const stowline::backup::ItemReport& item) override
    {
        std::cout << stowline::backup::nameOf(item.state) << " " << item.path << "\n";
    }
};

} // namespace

int main(int count, char** words)
{
    using namespace stowline;
    const char* password = std::getenv("STOWLINE_PASSWORD");
    if (count != 5 || !password) {
        std::cerr << "usage: STOWLINE_PASSWORD=… sample-backup BUNDLE USER STATE FOLDER\n";
        return 2;
    }
    platform::Bundle::useFolder(words[1]);
    const auto answer = WebServiceBroker::authenticateForUsername(words[2], password, nullptr);
    const std::string* server =
        answer ? platform::findString(*answer, "backupServerName") : nullptr;
    if (!server) {
        std::cerr << "The sign-in failed.\n";
        return 1;
    }
    backup::BackupRequest request;
    request.account = {
        .username = words[2], .password = password, .server = *server, .systemName = "sample"};
    request.identity = backup::identityOfThisUser();
    request.stateFolder = words[3];
    request.paths = {words[4]};

    Progress progress;
    const auto summary = backup::runBackup(request, progress, StopRequest());
    for (const auto& failure : summary.failures)
        std::cerr << failure.cause << "\n";
    std::cout << "found " << summary.found << ", stored " << summary.stored << ", unchanged "
              << summary.unchanged << ", failed " << summary.failed << ". " << summary.sentence
              << "\n";
    return summary.end == backup::BackupEnd::done ? 0 : 1;
}
