// Telling the user what a backup came to: a summary for the service, an e-mail by way of it.
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/text/UnicodeText.h"
#include "stowline/platform/time/DateFormatter.h"
#include "stowline/service/OptionalValues.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

namespace stowline {

namespace {

std::string decimal(std::int64_t number)
{
    return platform::formatText("%qi", number);
}

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
try {
    const platform::DateFormatter dates("yyyy-MM-dd HH:mm:ss");
    SubstitutionMap params{
        {"<<REPORTDATE>>", dates.stringFromDate(reportDate)},
        {"<<BACKUPDATE>>", dates.stringFromDate(backupDate)},
        {"<<NUMBEROFFILESNOTCHANGED>>", decimal(numberOfFilesNotChanged)},
        {"<<NUMBEROFFILESBACKEDUP>>", decimal(numberOfFilesBackedUp)},
        {"<<NUMBEROFFILESNOTBACKEDUP>>", decimal(numberOfFilesNotBackedUp)},
        {"<<TOTALNUMBEROFFILESPROCESSED>>", decimal(totalNumberOfFilesProcessed)},
        {"<<TOTALDATATRANSFERED>>", General::sizeString(totalDataTransfered)}};
    setIfPresent(params, "<<USERNAME>>", userName);
    setIfPresent(params, "<<PASSWORD>>", password);
    setIfPresent(params, "<<ACCOUNTUSERNAME>>", accountUserName);
    setIfPresent(params, "<<MACHINENAME>>", machineName);
    std::optional<Error> error;
    const auto result = invokeSOAPMethodWithName("SendBackupSummaryReport", {}, params, &error);
    const std::string* text = result ? result->string() : nullptr;
    if (!text || platform::lowercased(*text) != "success")
        STOWLINE_LOG_ERROR("Failed to send backup summary report with error %@", error);
} catch (const std::bad_alloc&) {
    // nothing to hand back
}

bool WebServiceBroker::sendEmailTo(std::optional<std::string_view> to,
                                   std::optional<std::string_view> from,
                                   std::optional<std::string_view> subject,
                                   std::optional<std::string_view> body, bool isHTML)
try {
    if (!to || !from)
        return false;
    const char* html = isHTML ? "1" : "0";
    const SubstitutionMap params{{"<<STRTOADDRESS>>", *to},
                                 {"<<STRFROMADDRESS>>", *from},
                                 {"<<STRSUBJECT>>", subject.value_or("")},
                                 {"<<STRBODY>>", body.value_or("")},
                                 {"<<BLNISHTMLFORMAT>>", html}};
    std::optional<Error> error;
    const auto result = invokeSOAPMethodWithName("sendEmail", {}, params, &error);
    if (isConfirmed(result))
        return true;
    STOWLINE_LOG_ERROR(
        "Error sending email, toAddress = %@, fromAddress = %@, subject = %@, body = "
        "%@, isHTML = %@\nerror = %@",
        to, from, subject.value_or(""), body.value_or(""), html, error);
    return false;
} catch (const std::bad_alloc&) {
    return false;
}

} // namespace stowline
