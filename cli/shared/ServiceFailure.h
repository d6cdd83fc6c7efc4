// How a failed call of the broker becomes a sentence and an exit status.
#pragma once

#include "cli/shared/ExitStatus.h"
#include "stowline/platform/values/Error.h"

#include <optional>
#include <string>
#include <string_view>

namespace stowline::cli {

/// What is wrong with the bundle's Info.plist when it does not tell something: it is missing,
/// cannot be read, is not a property list, or just does not say it.
/// @param lack for the last case: "has no version"
[[nodiscard]] std::string infoFault(const std::string& lack);

/// The same when the settings file is not named.
[[nodiscard]] std::string unnamedSettingsFault();

/// Checks that the settings can be used and have an entry for a web method; says what is wrong. To
/// be asked before the first call: the helper program loads meanwhile
/// (WebServiceBroker::beginNursery).
/// @return absent when all is well.
[[nodiscard]] std::optional<ExitStatus> settingsFailure(const std::string& webMethod);

/// Ends the output for a call that brought nothing: what happened, with its cure, and the status
/// that goes with it. What the error does not tell is looked for where "stowline doctor" looks.
/// @param error what the broker stored; absent when it stored nothing
[[nodiscard]] ExitStatus callFailure(const std::optional<Error>& error);

/// The same for an operation that has no error slot.
/// @param failure what a FailureWatch learnt of it
/// @param refusal what to say, with status 6, when the service said no, or nothing is known and
///        nothing stands between here and the service
/// @param cure of a call that changes something on the service: how to find out whether it did,
///        said where nobody can tell ("please try to sign in"); empty: there is nothing to say
[[nodiscard]] ExitStatus callFailure(const std::optional<Error>& failure,
                                     const std::string& refusal, const std::string& cure = "");

/// What an error of the broker means, in a sentence with its cure, where nobody looks for more.
[[nodiscard]] std::string failureSentence(const Error& error);

/// Whether an error tells that the service understood the call and said no.
[[nodiscard]] bool isRefusal(const std::optional<Error>& error);

/// Whether an error tells that the service said no with this code ("NoSuchFile").
[[nodiscard]] bool isRefusalWith(const std::optional<Error>& error, std::string_view code);

} // namespace stowline::cli
