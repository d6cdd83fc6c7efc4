#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/WebServiceBroker.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace stowline {
namespace {

using test::methodEntry;
using test::RawServer;
using test::settingsWith;

const std::vector<std::string> kReport{"USERNAME",
                                       "PASSWORD",
                                       "REPORTDATE",
                                       "ACCOUNTUSERNAME",
                                       "MACHINENAME",
                                       "BACKUPDATE",
                                       "NUMBEROFFILESNOTCHANGED",
                                       "NUMBEROFFILESBACKEDUP",
                                       "NUMBEROFFILESNOTBACKEDUP",
                                       "TOTALNUMBEROFFILESPROCESSED",
                                       "TOTALDATATRANSFERED"};

void sendReport(std::optional<std::string_view> machine = "iMac")
{
    using namespace std::chrono;
    const Date date = sys_days(year(2026) / 1 / 31) + hours(21) + minutes(5);
    WebServiceBroker::sendBackupReportForUserName("ann", "secret", date, "ann's", machine,
                                                  date - hours(1), -1, 2, 3, 9223372036854775807,
                                                  1536);
}

/// Error lines of one test.
class Errors {
public:
    Errors() { DDLog::addLogger(logger_); }
    ~Errors() { DDLog::removeLogger(logger_); }
    [[nodiscard]] std::vector<std::string> lines() const
    {
        DDLog::flushLog();
        std::vector<std::string> found;
        for (const auto& line : logger_->lines()) {
            if (line.flag == kLogFlagError)
                found.push_back(line.text);
        }
        return found;
    }

private:
    std::shared_ptr<CountingLogger> logger_ = std::make_shared<CountingLogger>();
};

TEST(BackupReport, SendsSignedCountsLocalDatesAndTheSizeInWords)
{
    ::setenv("TZ", "America/New_York", 1);
    ::setenv("LC_ALL", "ar_EG.UTF-8", 1);
    ::tzset();
    const RawServer server(test::soapAnswer("<r>SUCCESS</r>"));
    const test::TestBundle bundle(
        settingsWith("SendBackupSummaryReport", methodEntry(server.url(), kReport, "r")));
    const Errors errors;
    sendReport();
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<USERNAME>ann</USERNAME><PASSWORD>secret</PASSWORD>"
              "<REPORTDATE>2026-01-31 16:05:00</REPORTDATE><ACCOUNTUSERNAME>ann's</ACCOUNTUSERNAME>"
              "<MACHINENAME>iMac</MACHINENAME><BACKUPDATE>2026-01-31 15:05:00</BACKUPDATE>"
              "<NUMBEROFFILESNOTCHANGED>-1</NUMBEROFFILESNOTCHANGED>"
              "<NUMBEROFFILESBACKEDUP>2</NUMBEROFFILESBACKEDUP>"
              "<NUMBEROFFILESNOTBACKEDUP>3</NUMBEROFFILESNOTBACKEDUP>"
              "<TOTALNUMBEROFFILESPROCESSED>9223372036854775807</TOTALNUMBEROFFILESPROCESSED>"
              "<TOTALDATATRANSFERED>1.50 KB</TOTALDATATRANSFERED>");
    EXPECT_TRUE(errors.lines().empty());
    sendReport(std::nullopt);
    EXPECT_NE(server.requests().at(1).find("<MACHINENAME xsi:nil=\"true\" />"), std::string::npos);
}

TEST(BackupReport, FailuresAreLogged)
{
    const RawServer server(test::soapAnswer("<r>Later</r>"));
    const test::TestBundle bundle(
        settingsWith("SendBackupSummaryReport", methodEntry(server.url(), kReport, "r")));
    const Errors errors;
    const FailureWatch watch;
    sendReport();
    EXPECT_EQ(watch.kind(), FailureKind::refusedByService);
    EXPECT_EQ(errors.lines(),
              std::vector<std::string>{"Failed to send backup summary report with error (null)"});
}

const std::vector<std::string> kEmail{"STRTOADDRESS", "STRFROMADDRESS", "STRSUBJECT", "STRBODY",
                                      "BLNISHTMLFORMAT"};

TEST(Email, IsSentWhenTheAnswerBeginsLikeYes)
{
    test::SharedText word;
    const RawServer server([&word](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer(word.get()));
    });
    const test::TestBundle bundle(
        settingsWith("sendEmail", methodEntry(server.url(), kEmail, "r")));
    const auto isSent = [&word](const char* answer) {
        word = "<r>" + std::string(answer) + "</r>";
        return WebServiceBroker::sendEmailTo("a@b", "c@d", std::nullopt, std::nullopt, false);
    };
    for (const char* yes : {"1", "TRUE", "true", "Yes", "y", "10"})
        EXPECT_TRUE(isSent(yes)) << yes;
    for (const char* no : {"0", "false", "no", "", " true"})
        EXPECT_FALSE(isSent(no)) << no;
    word = "<r><a>true</a></r>";
    EXPECT_FALSE(WebServiceBroker::sendEmailTo("a@b", "c@d", "s", "b", true));
    EXPECT_EQ(test::parametersIn(server.requests().at(0)),
              "<STRTOADDRESS>a@b</STRTOADDRESS><STRFROMADDRESS>c@d</STRFROMADDRESS>"
              "<STRSUBJECT></STRSUBJECT><STRBODY></STRBODY><BLNISHTMLFORMAT>0</BLNISHTMLFORMAT>");
}

TEST(Email, WithoutAnAddressNothingHappens)
{
    const RawServer server(test::soapAnswer("<r>true</r>"));
    const test::TestBundle bundle(
        settingsWith("sendEmail", methodEntry(server.url(), kEmail, "r")));
    const Errors errors;
    EXPECT_FALSE(WebServiceBroker::sendEmailTo(std::nullopt, "c@d", "s", "b", true));
    EXPECT_FALSE(WebServiceBroker::sendEmailTo("a@b", std::nullopt, "s", "b", true));
    EXPECT_TRUE(server.requests().empty());
    EXPECT_TRUE(errors.lines().empty());
}

TEST(Email, AFailureIsLoggedInFull)
{
    const RawServer server(test::soapAnswer("<r>false</r>"));
    const test::TestBundle bundle(
        settingsWith("sendEmail", methodEntry(server.url(), kEmail, "r")));
    const Errors errors;
    EXPECT_FALSE(WebServiceBroker::sendEmailTo("a@b", "c@d", "Sub %@", "<b>x</b>", true));
    EXPECT_EQ(errors.lines(),
              std::vector<std::string>{"Error sending email, toAddress = a@b, fromAddress = c@d, "
                                       "subject = Sub %@, body = <b>x</b>, isHTML = 1\nerror = "
                                       "(null)"});
}

} // namespace
} // namespace stowline
