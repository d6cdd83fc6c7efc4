// The service layer: every request of the application to the backup service.
#pragma once

#include "stowline/call/WebServiceCallResult.h"
#include "stowline/platform/Error.h"
#include "stowline/platform/Format.h"
#include "stowline/soap/TemplateExpansion.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline {

/// Domain of the errors that the service layer makes, and their codes.
inline constexpr std::string_view kServiceErrorDomain = "com.Stowline.Application";
inline constexpr int kServiceErrorCode = 250;
inline constexpr int kFaultErrorCode = 200;

/// Static operations only; all may be called from any number of threads at once. Those that call a
/// web method block for one SOAP call (at most about 60 seconds and the start of a process), so
/// they belong on worker threads. They throw nothing. An error slot may be null; it is written only
/// where an operation says so, and never cleared.
class WebServiceBroker {
public:
    WebServiceBroker() = delete;

    // ---- Accounts (Authentication.cpp) ----

    /// Signs a user in: web method "Authenticate". Safe to repeat.
    /// @param error see invokeSOAPMethodWithName(); nothing of its own
    /// @return the service's whole answer with the HTTP status as decimal text under
    ///         "resStatusCode" ("-1" when there was no HTTP response). Whether the user is signed
    ///         in is the caller's to read from "AuthenticateResult", "accountStatus" and
    ///         "backupServerName", any of which may be missing. Absent when the call failed.
    [[nodiscard]] static std::optional<Dictionary>
    authenticateForUsername(std::string_view username, std::string_view password, ErrorSlot error);

    /// Opens an account: web method "CreateAccount". Not safe to repeat.
    /// @param error see invokeSOAPMethodWithName(); a refusal by the service leaves it untouched
    /// @return true exactly when the service answers "Success" in any mix of cases.
    [[nodiscard]] static bool creatAccountWithFirstname(std::string_view firstname,
                                                        std::string_view username,
                                                        std::string_view password,
                                                        std::string_view emailID, ErrorSlot error);

    /// Opens an account of a customer type, with the referral code of the branded build
    /// (information dictionary, "TW_ReferalCode"): web method "CreateTrialAccount". Not safe to
    /// repeat.
    /// @param error when the service refuses: code 250 with the service's message, else the words
    ///        of its result code
    /// @return true exactly when the answer's "Code" is "success" in any mix of cases.
    [[nodiscard]] static bool createTrialWithFirstname(
        std::string_view firstname, std::string_view username, std::string_view password,
        std::string_view email, std::string_view customerTypeCode, bool isSealGuard,
        std::string_view secretQuestion, std::string_view answer, ErrorSlot error);

    /// Has the service encrypt or decrypt a short text: web methods "EncryptString" and
    /// "DecryptString". The client holds no key. Safe to repeat.
    /// @return the service's text as it comes; absent on any failure.
    [[nodiscard]] static std::optional<Value> encryptString(std::string_view sourceString);
    [[nodiscard]] static std::optional<Value> decryptString(std::string_view sourceString);

    // ---- Calling a web method (Invocation.cpp) ----

    /// Calls a configured web method by name, in a process of its own. Whether a repetition is safe
    /// is the web method's matter; nothing is repeated here.
    ///
    /// Checks that the reachability host answers, fills the method's "URL" and percent-escapes it,
    /// runs WebServiceCaller, and waits for its end.
    /// @param name key of the settings' "WebServices" table and name of the SOAP method
    /// @param headerSubstitutions, paramSubstitutions values for the method's templates
    /// @param error code 250 when the host is not reachable or a value holds a character that
    ///        cannot be sent, code 200 when the service answers with a fault (its text is not
    ///        copied); untouched by every other failure
    /// @param anyString ignored; callers pass the empty string
    /// @param urlSubstitutions fill the "%@" of the method's "URL"
    /// @return the value at the method's "resultKeyPath" inside the answer, or the whole answer
    ///         when it has none, with the HTTP response under `kWSHTTPResponseMessage`; absent
    ///         when the call failed or the path leads nowhere.
    [[nodiscard]] static std::optional<Value>
    invokeSOAPMethodWithName(std::string_view name,
                             const std::optional<SubstitutionMap>& headerSubstitutions,
                             const std::optional<SubstitutionMap>& paramSubstitutions,
                             ErrorSlot error, std::string_view anyString,
                             std::initializer_list<platform::FormatArgument> urlSubstitutions);

    /// The same for methods whose "URL" has nothing to fill; logs the kind and size of the answer.
    [[nodiscard]] static std::optional<Value> invokeSOAPMethodWithName(
        std::string_view name, const std::optional<SubstitutionMap>& soapHeaderSubstitutions,
        const std::optional<SubstitutionMap>& soapParamSubstitutions, ErrorSlot error = nullptr);

    /// A copy of a result in which the HTTP response is a message again instead of bytes: a
    /// dictionary with "statusLine", "statusCode", "headers" and "body".
    [[nodiscard]] static Dictionary
    prepareIncomingResultDictionary(const WebServiceCallResult& result);

    /// The error for a fault result: code 200. Reads nothing of the fault, so that the service's
    /// inner workings do not reach the user.
    [[nodiscard]] static Error errorFromFaultDictionary(const Dictionary& faultResult);

    /// A result code written in camel case as words: "InvalidUserName" is "Invalid user name".
    [[nodiscard]] static std::string messageFromCode(std::string_view code);

    // ---- Templates (Templates.cpp) ----

    /// See soap::expandTemplate and soap::expandTemplates.
    [[nodiscard]] static std::string expandTemplate(std::string_view templateText,
                                                    const SubstitutionMap& substitutions,
                                                    bool escapeXmlEntities);
    [[nodiscard]] static std::optional<std::vector<std::string>>
    expandTemplates(const std::optional<std::vector<std::string>>& templates,
                    const SubstitutionMap& substitutions, bool escapeXmlEntities);
};

} // namespace stowline
