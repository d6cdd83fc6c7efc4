// A relay in front of a development service, for as long as it exists.
#pragma once

#include "stowline/platform/text/Text.h"
#include "tests/endtoend/BackedUp.h"
#include "tests/support/Relay.h"

namespace stowline::test {

/// Has the commands of an account talk to its service through a relay.
class Relayed {
public:
    explicit Relayed(const BackedUp& account)
        : relay(account.server.address().substr(sizeof "http://" - 1)),
          settings_(account.server.bundle() / "Resources" / "WebServicesSettings.plist"),
          text_(platform::readFile(settings_).value())
    {
        const std::string server = account.server.address().substr(sizeof "http://" - 1);
        write(platform::replacingOccurrences(text_, server, relay.address()));
    }
    ~Relayed() { write(text_); }
    Relayed(const Relayed&) = delete;
    Relayed& operator=(const Relayed&) = delete;

    /// What a request asks for: "Method", or "/Request" of a plain one.
    [[nodiscard]] static std::string callOf(const std::string& request)
    {
        const std::string action = headerOf(request, "SOAPAction");
        if (action.empty()) {
            const std::string line = request.substr(0, request.find(' ', request.find(' ') + 1));
            return line.substr(line.rfind('/'));
        }
        std::string method = action.substr(action.rfind('/') + 1);
        std::erase(method, '"');
        return method;
    }

    Relay relay;

private:
    void write(const std::string& text) const
    {
        EXPECT_TRUE(platform::writeFileAtomically(settings_, text));
    }

    const std::filesystem::path settings_;
    const std::string text_;
};

} // namespace stowline::test
