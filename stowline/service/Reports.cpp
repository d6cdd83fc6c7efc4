// Telling the user what a backup came to: a summary for the service, an e-mail by way of it.
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/time/DateFormatter.h"
#include "stowline/service/Operation.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/ServiceAnswer.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline {

namespace {

bool isConfirmed(const std::optional<Value>& result)
{
    const std::string* text = result ? result->string() : nullptr;
    const std::string lower = text ? platform::lowercased(*text) : std::string();
    return lower.starts_with('1') || lower.starts_with('t') || lower.starts_with('y');
}

} // namespace

void WebServiceBroker::sendBackupReportForUserName(
    std::optional<std::string_view> userName, std::optional<std::string_view> password,
    Date reportDate, std::optional<std::string_view> accountUserName,
    std::optional<std::string_view> machineName, Date backupDate,
    std::int64_t numberOfFilesNotChanged, std::int64_t numberOfFilesBackedUp,
    std::int64_t numberOfFilesNotBackedUp, std::int64_t totalNumberOfFilesProcessed,
    std::uint64_t totalDataTransfered)
{
    runOperation(
        "sendBackupReportForUserName:password:reportDate:accountUserName:machineName:backupDate:"
        "numberOfFilesNotChanged:numberOfFilesBackedUp:numberOfFilesNotBackedUp:"
        "totalNumberOfFilesProcessed:totalDataTransfered:",
        nullptr, [&](const Operation& operation) {
            const platform::DateFormatter dates("yyyy-MM-dd HH:mm:ss");
            SubstitutionMap params{
                {placeholder::reportDate, dates.stringFromDate(reportDate)},
                {placeholder::backupDate, dates.stringFromDate(backupDate)},
                {placeholder::numberOfFilesNotChanged, numberOfFilesNotChanged},
                {placeholder::numberOfFilesBackedUp, numberOfFilesBackedUp},
                {placeholder::numberOfFilesNotBackedUp, numberOfFilesNotBackedUp},
                {placeholder::totalNumberOfFilesProcessed, totalNumberOfFilesProcessed},
                {placeholder::totalDataTransfered, General::sizeString(totalDataTransfered)}};
            setIfPresent(params, placeholder::username, userName);
            setIfPresent(params, placeholder::password, password);
            setIfPresent(params, placeholder::accountUsername, accountUserName);
            setIfPresent(params, placeholder::machineName, machineName);
            std::optional<Error> error;
            const auto result =
                invokeSOAPMethodWithName("SendBackupSummaryReport", {}, params, &error);
            if (saysSuccess(result))
                return;
            if (result)
                operation.failUntold(FailureKind::refusedByService,
                                     "The service did not take the summary: " + result->text());
            OPERATION_LOG_ERROR(operation, "Failed to send backup summary report with error %@",
                                error);
        });
}

bool WebServiceBroker::sendEmailTo(std::optional<std::string_view> to,
                                   std::optional<std::string_view> from,
                                   std::optional<std::string_view> subject,
                                   std::optional<std::string_view> body, bool isHTML)
{
    return runOperation(
        "sendEmailTo:from:subject:body:isHTML:", nullptr, false,
        [&](const Operation& operation) -> bool {
            if (!to || !from)
                return false;
            const char* html = isHTML ? "1" : "0";
            const SubstitutionMap params{{placeholder::strToAddress, *to},
                                         {placeholder::strFromAddress, *from},
                                         {placeholder::strSubject, subject.value_or("")},
                                         {placeholder::strBody, body.value_or("")},
                                         {placeholder::blnIsHtmlFormat, html}};
            std::optional<Error> error;
            const auto result = invokeSOAPMethodWithName("sendEmail", {}, params, &error);
            if (isConfirmed(result))
                return true;
            if (result)
                operation.failUntold(FailureKind::refusedByService,
                                     "The service did not send the e-mail: " + result->text());
            OPERATION_LOG_ERROR(
                operation,
                "Error sending email, toAddress = %@, fromAddress = %@, subject = %@, body = "
                "%@, isHTML = %@\nerror = %@",
                to, from, subject.value_or(""), body.value_or(""), html, error);
            return false;
        });
}

} // namespace stowline
