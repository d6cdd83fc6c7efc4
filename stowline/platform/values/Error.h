// What an operation that failed hands back through its error out-parameter.
#pragma once

#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// Key of the message in an error's user-info map.
inline constexpr std::string_view kLocalizedDescriptionKey = "localizedDescription";

/// Key of the user-info map for what the failure was found by, in words, where the message is the
/// same for many reasons. For people; without credentials.
inline constexpr std::string_view kFailureReasonKey = "failureReason";

/// Key of the user-info map for the code with which the service refused, as it told it
/// ("NoSuchFile"); only in errors of the kind refusedByService, and only where it told one.
inline constexpr std::string_view kServiceCodeKey = "serviceCode";

/// What went wrong, for programs: what is to be decided about a failure is decided by this, never
/// by its sentence.
enum class FailureKind {
    unspecified,      ///< nothing more is known than domain, code and sentence
    noMemory,         ///< neither this nor anything else can go on
    noThread,         ///< the system has no thread left
    unexpected,       ///< what nobody foresaw: an exception without a kind of its own
    hostUnreachable,  ///< the reachability host of the settings does not answer
    invalidSettings,  ///< an entry or address of the settings is missing or cannot be used
    unsendableValue,  ///< a value holds a character that cannot be sent
    fault,            ///< the service answered with a SOAP fault
    unreadableAnswer, ///< something answered, but not as the service does
    timeOut,          ///< no answer, or nothing moved, for as long as is waited
    connection,       ///< no connection, or one that broke
    nameNotFound,     ///< the address of a host's name could not be found
    certificate,      ///< the server could not prove that it is the one that is meant
    proxyRefused,     ///< the proxy wants credentials or refuses the way
    refusedRedirect,  ///< a redirect that is not followed
    tooLarge,         ///< the answer is larger than the limit
    requestTooLarge,  ///< the server does not take a request of this size (status 413)
    badRequest,       ///< the server does not understand the request (status 400)
    unavailable,      ///< the server cannot serve now (status 429, 502, 503 or 504)
    helperFailed,     ///< the helper program could not be started, or ended without an answer
    refusedByService, ///< the service understood the request and said no
    stopped,          ///< a request to stop came first
};

/// A kind's own name ("hostUnreachable"), for output and for crossing the process boundary; and
/// back, where a name that is not known is `unspecified`.
[[nodiscard]] std::string_view nameOf(FailureKind kind);
[[nodiscard]] FailureKind failureKindNamed(std::string_view name);

struct Error {
    std::string domain;
    int code = 0;
    Dictionary userInfo;
    FailureKind kind = FailureKind::unspecified;

    /// The message for people; empty when the user-info map has none.
    [[nodiscard]] std::string localizedDescription() const
    {
        const std::string* message = findString(userInfo, kLocalizedDescriptionKey);
        return message ? *message : std::string();
    }

    /// One line for the log: domain, code and message.
    [[nodiscard]] std::string text() const
    {
        return "Error Domain=" + domain + " Code=" + std::to_string(code) + " \"" +
               localizedDescription() + "\"";
    }
};

/// An error whose user-info map holds the message and nothing else.
[[nodiscard]] inline Error makeError(std::string domain, int code, std::string message,
                                     FailureKind kind = FailureKind::unspecified)
{
    return {std::move(domain),
            code,
            {{std::string(kLocalizedDescriptionKey), std::move(message)}},
            kind};
}

/// Where an operation stores its error; null when the caller does not want one.
using ErrorSlot = std::optional<Error>*;

} // namespace stowline::platform

namespace stowline {
using platform::Error;
using platform::ErrorSlot;
using platform::FailureKind;
} // namespace stowline
#pragma GCC visibility pop
