// A host program that puts back what the last run found: signs in, restores, says what failed.
//
//   STOWLINE_PASSWORD=… sample-restore BUNDLE-FOLDER USER STATE-FOLDER STORED-PATH TARGET-FOLDER
#include "stowline/backup/RestoreRun.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"

#include <cstdlib>
#include <iostream>

namespace {

class Progress : public stowline::backup::RestoreObserver {
public:
    void itemDone(const stowline::backup::RestoredItem& item) override
    {
        std::cout << stowline::backup::nameOf(item.state) << " " << item.path << "\n";
        for (const std::string& fault : item.faults)
            std::cerr << fault << "\n";
    }
};

} // namespace

int main(int count, char** words)
{
    using namespace stowline;
    const char* password = std::getenv("STOWLINE_PASSWORD");
    if (count != 6 || !password) {
        std::cerr << "usage: STOWLINE_PASSWORD=… sample-restore BUNDLE USER STATE PATH TARGET\n";
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
    backup::RestoreRequest request;
    request.choice.account = {
        .username = words[2], .password = password, .server = *server, .systemName = "sample"};
    request.choice.identity = backup::identityOfThisUser();
    request.choice.stateFolder = words[3]; // tells when the service shows an older state
    request.paths = {words[4]};
    request.target = words[5];

    Progress progress;
    const auto summary = backup::runRestore(request, progress, StopRequest());
    for (const std::string& note : summary.origin.notes)
        std::cerr << note << "\n";
    for (const auto& loss : summary.losses)
        std::cerr << loss.sentence << "\n";
    std::cout << "Run " << summary.run << ": " << summary.restored << " restored, "
              << summary.unchanged << " unchanged, " << summary.failed << " failed. "
              << summary.sentence << "\n";
    return summary.end == backup::ReadEnd::done ? 0 : 1;
}
