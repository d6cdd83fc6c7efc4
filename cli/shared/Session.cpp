#include "cli/shared/Session.h"

#include "cli/shared/Output.h"
#include "cli/shared/ServiceFailure.h"
#include "cli/shared/TimeLimit.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace stowline::cli {

namespace {

/// A service that works answers within it.
constexpr double kShortestWait = 5;
/// A network or a service that is just coming up is there within it; a person does not wait longer.
constexpr double kMostTriedAgain = 4;
constexpr std::chrono::milliseconds kBetweenTries{500};

/// What may have passed by the next moment.
bool isPassing(FailureKind kind)
{
    return kind == FailureKind::connection || kind == FailureKind::unavailable ||
           kind == FailureKind::nameNotFound || kind == FailureKind::hostUnreachable;
}

/// A boolean as XML Schema writes it, in any case; absent for everything else.
std::optional<bool> truthOf(const std::string& text)
{
    const std::string word = platform::asciiLowercase(text);
    if (word == "true" || word == "1")
        return true;
    if (word == "false" || word == "0")
        return false;
    return std::nullopt;
}

/// Of a call that was answered with something else than what it asks for.
Error unreadableAnswer(const std::string& reason)
{
    Error error =
        platform::makeError(std::string(kServiceErrorDomain), kFaultErrorCode,
                            "Web Service call returned fault", FailureKind::unreadableAnswer);
    error.userInfo.emplace(platform::kFailureReasonKey, reason);
    return error;
}

} // namespace

void declareUsername(const Command& command, std::string& username)
{
    command.addOption("-u,--username", username, "User name").fromVariable().required();
}

void SessionOptions::declare(const Command& command)
{
    declareUsername(command, username_);
    password_.declare(command, "password", "STOWLINE_PASSWORD");
}

std::optional<bool> saysSignedIn(const Dictionary& answer)
{
    return truthOf(platform::findText(answer, "AuthenticateResult"));
}

Result<Dictionary> signIn(const std::string& username, const std::string& password,
                          std::optional<double> atMostSeconds)
{
    const FailureWatch watch;
    std::optional<Dictionary> result;
    {
        std::optional<TimeLimit> limit;
        if (atMostSeconds)
            limit.emplace(std::chrono::duration<double>(std::max(*atMostSeconds, kShortestWait)));
        const auto until =
            std::chrono::steady_clock::now() +
            std::chrono::duration<double>(std::min(atMostSeconds.value_or(0), kMostTriedAgain));
        for (;;) {
            result = WebServiceBroker::authenticateForUsername(username, password, nullptr);
            if (result || !isPassing(watch.kind()) || std::chrono::steady_clock::now() >= until)
                break;
            std::this_thread::sleep_for(kBetweenTries);
        }
        if (!result && limit && limit->isOver())
            return output().fail(ExitStatus::temporary,
                                 "The service did not answer the sign-in in time. Please try again "
                                 "later, or wait longer (--retry-time).",
                                 platform::nameOf(FailureKind::timeOut));
    }
    if (!result)
        return callFailure(watch.failure());
    const auto isSignedIn = saysSignedIn(*result);
    if (!isSignedIn)
        return callFailure(unreadableAnswer("It does not say whether the user is signed in."));
    if (!*isSignedIn)
        return output().fail(ExitStatus::signInRefused, "The service refused the sign-in. Please "
                                                        "check user name and password.");
    return *result;
}

std::optional<std::string> SessionOptions::readPassword() const
{
    return password_.read("Password for " + username_ + ": ");
}

Result<Session> SessionOptions::open(std::initializer_list<const char*> webMethods,
                                     std::optional<double> atMostSeconds) const
{
    if (const auto failure = settingsFailure("Authenticate"))
        return *failure;
    for (const char* method : webMethods) {
        if (const auto failure = settingsFailure(method))
            return *failure;
    }
    const auto password = readPassword();
    if (!password)
        return output().finish(ExitStatus::usage);
    const auto result = signIn(username_, *password, atMostSeconds);
    if (!result)
        return result.status();
    Session session{username_, *password, platform::findText(*result, "backupServerName")};
    if (session.server.empty())
        return output().fail(ExitStatus::temporary,
                             "The service named no backup server. Please try again later.");
    return session;
}

ExitStatus refusal(const std::string& what, const std::optional<Error>& error)
{
    if (!isRefusal(error))
        return callFailure(error);
    return output().fail(ExitStatus::refused, what + ": " + error->localizedDescription() + ".");
}

} // namespace stowline::cli
