// The smallest host program: signs in and says where the files are to go.
//
//   STOWLINE_PASSWORD=… sample-signin BUNDLE-FOLDER USER
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/service/WebServiceBroker.h"

#include <cstdlib>
#include <iostream>

int main(int count, char** words)
{
    using namespace stowline;
    const char* password = std::getenv("STOWLINE_PASSWORD");
    if (count != 3 || !password) {
        std::cerr << "usage: STOWLINE_PASSWORD=… sample-signin BUNDLE-FOLDER USER\n";
        return 2;
    }
    platform::Bundle::useFolder(words[1]);

    std::optional<Error> error;
    const auto result = WebServiceBroker::authenticateForUsername(words[2], password, &error);
    if (!result) {
        std::cerr << (error ? error->localizedDescription() : "The service did not answer.")
                  << "\n";
        return 1;
    }
    const std::string* signedIn = platform::findString(*result, "AuthenticateResult");
    const std::string* server = platform::findString(*result, "backupServerName");
    if (!signedIn || *signedIn != "true" || !server) {
        std::cerr << "The service refused the sign-in.\n";
        return 1;
    }
    std::cout << "signed in; the backup server is " << *server << "\n";
}
