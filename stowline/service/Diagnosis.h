// Looking for what stands between this machine and the service, one thing at a time. Any thread;
// everything blocks. Throws std::bad_alloc alone.
#pragma once

#include "stowline/platform/values/Error.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// What was looked at, whether it is well, what was found and what to do.
struct Finding {
    std::string subject; ///< "helper", "network", "tls", "http", "address", "length" …
    bool isWell = true;
    std::string text;
    FailureKind kind = FailureKind::unspecified; ///< when it is not well
};

/// Whether the helper program can be run. Runs it.
[[nodiscard]] Finding lookAtHelper();

/// Whether there is a way to the reachability host of the settings, or to the proxies where they
/// carry all calls.
[[nodiscard]] Finding lookAtNetwork();

/// Whether the settings in use are an example: the reachability host and all addresses of calls are
/// names that are nobody's (RFC 2606). Then whatever needs a service can only fail.
[[nodiscard]] bool settingsNameNoService();

/// The addresses of all web methods, web requests and templates of the settings, as calls use them,
/// one of each origin.
/// @param server fills the place of the backup server ("http://%@/…"); empty: these are missing
[[nodiscard]] std::vector<std::string> serviceAddresses(const std::string& server);

/// Those of them that a body is sent to whose length has a letter behind it, each with the name of
/// a web request that does so.
[[nodiscard]] std::map<std::string, std::string>
addressesOfLetteredLengths(const std::string& server);

/// Whether the server there refuses such a length though it takes a plain one, which is what
/// standard servers do. Sends a body of one byte once or twice; blocks for at most 20 seconds.
/// @return what is not well; absent when the length is not to blame for anything
[[nodiscard]] std::optional<Finding> lookAtLetteredLength(const std::string& address,
                                                          const std::string& request);

/// Whether an address answers, as a call would find it: any answer but a proxy's is well, for it
/// shows that name, connection and certificate are. Blocks for at most ten seconds. The credentials
/// of an address are not in the text.
[[nodiscard]] Finding lookAtAddress(const std::string& address);

/// Whether this machine's clock agrees with that of the server at an address, by the answer's Date
/// (RFC 9110 section 5.6.7): to five minutes. Blocks for at most ten seconds.
/// @return absent when the server does not answer or does not tell its time
[[nodiscard]] std::optional<Finding> lookAtClock(const std::string& address);

/// The first of these that is not well; absent when all are.
[[nodiscard]] std::optional<Finding> firstTrouble();

/// Whether the desktop's settings name a proxy for one of serviceAddresses(). Not known, and so no,
/// where the environment names one.
[[nodiscard]] bool desktopNamesAProxy(const std::string& server);

} // namespace stowline
#pragma GCC visibility pop
