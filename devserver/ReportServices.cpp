#include "devserver/ReportServices.h"

#include "devserver/Answers.h"
#include "devserver/Parameters.h"

#include <array>

namespace stowline::devserver {

namespace {

constexpr std::array<const char*, 16> kEventFields{
    "eventType",           "userName",           "authToken",          "systemName",
    "backupDuration",      "clientVersion",      "clientDate",         "isScheduled",
    "errorFilesCount",     "errorFilesSize",     "totalFilesCount",    "totalFilesSize",
    "unchangedFilesCount", "unchangedFilesSize", "uploadedFilesCount", "uploadedFilesSize"};

constexpr std::array<const char*, 11> kReportFields{"userName",
                                                    "password",
                                                    "reportDate",
                                                    "accountUserName",
                                                    "machineName",
                                                    "backupDate",
                                                    "numberOfFilesNotChanged",
                                                    "numberOfFilesBackedUp",
                                                    "numberOfFilesNotBackedUp",
                                                    "totalNumberOfFilesProcessed",
                                                    "totalDataTransfered"};

template <std::size_t Count> std::vector<Field> fields(const std::array<const char*, Count>& names)
{
    std::vector<Field> list;
    list.reserve(Count);
    for (const char* name : names)
        list.push_back({.name = name});
    return list;
}

/// @param systemName of the machine that asks
const std::vector<FieldOf<std::string>>& monitoringFields()
{
    const auto yes = [](const std::string& /*systemName*/) { return truthText(true); };
    static const std::vector<FieldOf<std::string>> fields{
        {"IsEnabled", yes},
        {"ReportsScheduledBackups", yes},
        {"ReportsManualBackups", yes},
        {"SystemName", [](const std::string& systemName) { return systemName; }}};
    return fields;
}

void requireToken(MonitoringTokens& tokens, const Dictionary& parameters)
{
    if (!tokens.isGood(text(parameters, "authToken")))
        throw ServiceFault("Client", "InvalidAuthenticationTokenFault");
}

/// What was given, less its secrets.
Dictionary without(const Dictionary& parameters, const char* secret)
{
    Dictionary kept = parameters;
    kept.erase(secret);
    return kept;
}

} // namespace

Service monitoringService(Journal& journal, MonitoringTokens& tokens)
{
    return {"MonitoringService",
            "/MonitoringService.asmx",
            "http://stowline.example/monitoring",
            {{"GetSettings",
              "What central monitoring wants of a machine.",
              {{.name = "userName"}, {.name = "authToken"}, {.name = "systemName"}},
              {{.name = "GetSettingsResult", .parts = described(monitoringFields())}},
              [&tokens](const Dictionary& parameters) {
                  requireToken(tokens, parameters);
                  return Value(told(monitoringFields(), text(parameters, "systemName")));
              }},
             {"LogEvent",
              "Takes an event of a backup.",
              fields(kEventFields),
              {{.name = "LogEventResult"}},
              [&journal, &tokens](const Dictionary& parameters) {
                  requireToken(tokens, parameters);
                  journal.addEvent(without(parameters, "authToken"));
                  return Value("Success");
              }}}};
}

Service reportService(const AccountServiceContext& context, Journal& journal)
{
    return {"ReportService",
            "/ReportService.asmx",
            "http://stowline.example/report",
            {{"SendBackupSummaryReport",
              "Keeps the summary of a backup.",
              fields(kReportFields),
              {{.name = "SendBackupSummaryReportResult"}},
              [&context, &journal](const Dictionary& parameters) {
                  requireSignIn(context, parameters);
                  journal.addReport(without(parameters, "password"));
                  return Value("Success");
              }},
             {"sendEmail",
              "Keeps an e-mail as a file that mail readers open.",
              {{.name = "strToAddress"},
               {.name = "strFromAddress"},
               {.name = "strSubject"},
               {.name = "strBody"},
               {.name = "blnIsHtmlFormat"}},
              {{.name = "sendEmailResult"}},
              [&journal](const Dictionary& parameters) {
                  const bool isKept =
                      journal.keep({.to = text(parameters, "strToAddress"),
                                    .from = text(parameters, "strFromAddress"),
                                    .subject = text(parameters, "strSubject"),
                                    .body = text(parameters, "strBody"),
                                    .isHtml = text(parameters, "blnIsHtmlFormat") == "1"});
                  return Value(truthText(isKept));
              }}}};
}

} // namespace stowline::devserver
