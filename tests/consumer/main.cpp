// Signs in and says where the files are to go: STOWLINE_PASSWORD=… consumer BUNDLE-FOLDER USER
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"

#include <cstdlib>
#include <iostream>

int main(int count, char** words)
{
    using namespace stowline;
    const char* password = std::getenv("STOWLINE_PASSWORD");
    if (count != 3 || !password)
        return 2;
    // WebServiceCaller lies beside this, Info.plist and Resources/ in the bundle.
    platform::Bundle::useExecutable(STOWLINE_TOOLS_DIR "/consumer");
    platform::Bundle::useFolder(words[1]);
    std::optional<Error> error;
    const auto answer = WebServiceBroker::authenticateForUsername(words[2], password, &error);
    const auto* server = answer ? platform::findString(*answer, "backupServerName") : nullptr;
    if (!server)
        std::cerr << (error ? error->localizedDescription() : "The sign-in was refused.") << "\n";
    else
        std::cout << "signed in; the backup server is " << *server << "\n";
    return server ? 0 : 1;
}
