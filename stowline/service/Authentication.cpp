// Signing in, opening accounts, and the service's string encryption.
#include "stowline/call/WireNames.h"
#include "stowline/platform/desktop/Bundle.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/service/Operation.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
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

void logSignIn(const Operation& operation, const Dictionary& result, std::int64_t statusCode)
{
    const auto info = [&](std::string_view format, const auto&... arguments) {
        OPERATION_LOG_INFO(operation, format, arguments...);
    };
    // The names in these lines are those that the expected values have always been logged under.
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
        method, {}, SubstitutionMap{{placeholder::sourceString, sourceString}});
}

} // namespace

std::optional<Dictionary> WebServiceBroker::authenticateForUsername(std::string_view username,
                                                                    std::string_view password,
                                                                    ErrorSlot error)
{
    return runOperation("authenticateForUsername:withPassword:error:", error, std::nullopt,
                        [&](const Operation& operation) -> std::optional<Dictionary> {
                            const SubstitutionMap params{{placeholder::username, username},
                                                         {placeholder::password, password}};
                            const auto answer =
                                invokeSOAPMethodWithName("Authenticate", {}, params, error);
                            if (!answer || !answer->dictionary())
                                return std::nullopt;
                            Dictionary result = *answer->dictionary();
                            const std::int64_t statusCode = statusCodeOf(result);
                            result.insert_or_assign("resStatusCode", std::to_string(statusCode));
                            logSignIn(operation, result, statusCode);
                            return result;
                        });
}

bool WebServiceBroker::creatAccountWithFirstname(std::string_view firstname,
                                                 std::string_view username,
                                                 std::string_view password,
                                                 std::string_view emailID, ErrorSlot error)
{
    return runOperation("creatAccountWithFirstname:username:password:emailID:error:", error, false,
                        [&](const Operation& operation) -> bool {
                            const SubstitutionMap params{{placeholder::firstName, firstname},
                                                         {placeholder::username, username},
                                                         {placeholder::password, password},
                                                         {placeholder::emailId, emailID}};
                            const auto result =
                                invokeSOAPMethodWithName("CreateAccount", {}, params, error);
                            if (!result)
                                return false;
                            operation.clearError(); // a refusal has none
                            if (saysSuccess(result))
                                return true;
                            operation.failUntold(FailureKind::refusedByService,
                                                 "The service did not open the account.");
                            return false;
                        });
}

bool WebServiceBroker::createTrialWithFirstname(std::string_view firstname,
                                                std::string_view username,
                                                std::string_view password, std::string_view email,
                                                std::string_view customerTypeCode, bool isSealGuard,
                                                std::string_view secretQuestion,
                                                std::string_view answer, ErrorSlot error)
{
    return runOperation(
        "createTrialWithFirstname:username:password:email:customerTypeCode:isSealGuard:"
        "secretQuestion:answer:error:",
        error, false, [&](const Operation& operation) -> bool {
            const SubstitutionMap params{
                {placeholder::firstName, firstname},
                {placeholder::username, username},
                {placeholder::password, password},
                {placeholder::email, email},
                {placeholder::customerTypeCode, customerTypeCode},
                {placeholder::isSealGuard, isSealGuard ? "1" : "0"},
                {placeholder::secretQuestion, secretQuestion},
                {placeholder::answer, answer},
                {placeholder::referalCode,
                 platform::Bundle::infoString("TW_ReferalCode").value_or("")}};
            const auto result = invokeSOAPMethodWithName("CreateTrialAccount", {}, params, error);
            if (!result)
                return false;
            const Dictionary entries = result->dictionary() ? *result->dictionary() : Dictionary();
            const std::string code = findText(entries, "Code");
            if (isSuccessCode(code))
                return true;
            operation.failRefused(code, find(entries, "Message") ? findText(entries, "Message")
                                                                 : messageFromCode(code));
            return false;
        });
}

std::optional<Value> WebServiceBroker::encryptString(std::string_view sourceString)
{
    return runOperation("encryptString:", nullptr, std::nullopt,
                        [&](const Operation& /*operation*/) -> std::optional<Value> {
                            return invokeWithSourceString("EncryptString", sourceString);
                        });
}

std::optional<Value> WebServiceBroker::decryptString(std::string_view sourceString)
{
    return runOperation("decryptString:", nullptr, std::nullopt,
                        [&](const Operation& /*operation*/) -> std::optional<Value> {
                            return invokeWithSourceString("DecryptString", sourceString);
                        });
}

} // namespace stowline
