// Signing in, opening accounts, and the service's string encryption.
#include "stowline/call/WireNames.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/service/WebServiceBroker.h"

namespace stowline {

namespace {

/// The HTTP status of a prepared result; -1 when there was no HTTP response.
std::int64_t statusCodeOf(const Dictionary& result)
{
    const Dictionary* message = findDictionary(result, kWSHTTPResponseMessage);
    const Value* status = message ? find(*message, "statusCode") : nullptr;
    return status && status->integer() ? *status->integer() : -1;
}

void logSignIn(const Dictionary& result, std::int64_t statusCode)
{
    // The names in these lines are those that the expected values have always been logged under.
    constexpr const char* authenticateForUsername = "authenticateForUsername:withPassword:error:";
    const auto info = [&](std::string_view format, const auto&... arguments) {
        DDLog::log(true, kSystemLogLevel, kLogFlagInfo, 0, __FILE__, authenticateForUsername,
                   __LINE__, format, arguments...);
    };
    info("\nWebServiceBroker.authenticate. Result status code is %ld", statusCode);
    info("\nExpected return values (if any of the following are nil, an error has been encountered."
         " Perhaps a node name has changed or a value for the node was not supplied, and the app"
         " cannot continue successfully):");
    info("\n\tAuthenticationResult. Value = %@", find(result, "AuthenticateResult"));
    info("\n\taccountStatus. Value = %@", find(result, "accountStatus"));
    info("\n\tbackupServerName. Value = %@", find(result, "backupServerName"));
}

std::optional<Value> invokeWithSourceString(std::string_view method, std::string_view sourceString)
{
    return WebServiceBroker::invokeSOAPMethodWithName(
        method, {}, SubstitutionMap{{"<<SOURCESTRING>>", sourceString}});
}

} // namespace

std::optional<Dictionary> WebServiceBroker::authenticateForUsername(std::string_view username,
                                                                    std::string_view password,
                                                                    ErrorSlot error)
try {
    const SubstitutionMap params{{"<<USERNAME>>", username}, {"<<PASSWORD>>", password}};
    const auto answer = invokeSOAPMethodWithName("Authenticate", {}, params, error);
    if (!answer || !answer->dictionary())
        return std::nullopt;
    Dictionary result = *answer->dictionary();
    const std::int64_t statusCode = statusCodeOf(result);
    result.insert_or_assign("resStatusCode", std::to_string(statusCode));
    logSignIn(result, statusCode);
    return result;
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return std::nullopt;
}

bool WebServiceBroker::creatAccountWithFirstname(std::string_view firstname,
                                                 std::string_view username,
                                                 std::string_view password,
                                                 std::string_view emailID, ErrorSlot error)
try {
    const SubstitutionMap params{{"<<FIRSTNAME>>", firstname},
                                 {"<<USERNAME>>", username},
                                 {"<<PASSWORD>>", password},
                                 {"<<EMAILID>>", emailID}};
    const auto result = invokeSOAPMethodWithName("CreateAccount", {}, params, error);
    return result && result->string() && platform::equalsIgnoringCase(*result->string(), "Success");
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return false;
}

bool WebServiceBroker::createTrialWithFirstname(std::string_view firstname,
                                                std::string_view username,
                                                std::string_view password, std::string_view email,
                                                std::string_view customerTypeCode, bool isSealGuard,
                                                std::string_view secretQuestion,
                                                std::string_view answer, ErrorSlot error)
try {
    const SubstitutionMap params{
        {"<<FIRSTNAME>>", firstname},
        {"<<USERNAME>>", username},
        {"<<PASSWORD>>", password},
        {"<<EMAIL>>", email},
        {"<<CUSTOMERTYPECODE>>", customerTypeCode},
        {"<<ISSEALGUARD>>", isSealGuard ? "1" : "0"},
        {"<<SECRETQUESTION>>", secretQuestion},
        {"<<ANSWER>>", answer},
        {"<<REFERALCODE>>", platform::Bundle::infoString("TW_ReferalCode").value_or("")}};
    const auto result = invokeSOAPMethodWithName("CreateTrialAccount", {}, params, error);
    if (!result)
        return false;
    const Dictionary entries = result->dictionary() ? *result->dictionary() : Dictionary();
    const std::string code = findText(entries, "Code");
    if (platform::lowercased(code) == "success")
        return true;
    if (error)
        *error = platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode,
                                     find(entries, "Message") ? findText(entries, "Message")
                                                              : messageFromCode(code),
                                     FailureKind::refusedByService);
    return false;
} catch (const std::bad_alloc&) {
    platform::storeNoMemory(error, kServiceErrorDomain, kServiceErrorCode);
    return false;
}

std::optional<Value> WebServiceBroker::encryptString(std::string_view sourceString)
try {
    return invokeWithSourceString("EncryptString", sourceString);
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

std::optional<Value> WebServiceBroker::decryptString(std::string_view sourceString)
try {
    return invokeWithSourceString("DecryptString", sourceString);
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

} // namespace stowline
