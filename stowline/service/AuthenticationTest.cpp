#include "stowline/service/WebServiceBroker.h"

#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/SoapAnswers.h"

#include <gtest/gtest.h>

#include <atomic>

namespace stowline {
namespace {

using test::RawServer;

bool createTrial(ErrorSlot error, bool isSealGuard = false)
{
    return WebServiceBroker::createTrialWithFirstname("Ann", "ann", "pw", "a@b.c", "T1",
                                                      isSealGuard, "Pet?", "Rex", error);
}

const std::vector<std::string> kTrialPlaceholders{
    "FIRSTNAME",   "USERNAME",       "PASSWORD", "EMAIL",      "CUSTOMERTYPECODE",
    "ISSEALGUARD", "SECRETQUESTION", "ANSWER",   "REFERALCODE"};

TEST(Authenticate, AddsTheStatusAndLogsTheExpectedValues)
{
    const RawServer server(test::soapAnswer("<AuthenticateResult>true</AuthenticateResult>"
                                            "<accountStatus>Active</accountStatus>"));
    const test::TestBundle bundle(test::settingsWith(
        "Authenticate", test::methodEntry(server.url(), {"USERNAME", "PASSWORD"})));
    const auto logger = std::make_shared<CountingLogger>();
    DDLog::addLogger(logger);
    std::optional<Error> error;
    const auto result = WebServiceBroker::authenticateForUsername("ann", "p&w", &error);
    ASSERT_TRUE(result);
    EXPECT_FALSE(error);
    EXPECT_EQ(*find(*result, "resStatusCode"), Value("200"));
    EXPECT_EQ(*find(*result, "AuthenticateResult"), Value("true"));
    EXPECT_EQ(find(*result, "backupServerName"), nullptr);
    EXPECT_NE(server.requests().at(0).find("<USERNAME>ann</USERNAME><PASSWORD>p&amp;w</PASSWORD>"),
              std::string::npos);

    DDLog::flushLog();
    std::vector<std::string> lines;
    for (const auto& line : logger->lines()) {
        if (line.function == "authenticateForUsername:withPassword:error:")
            lines.push_back(line.text);
        EXPECT_EQ(line.flag, kLogFlagInfo);
        EXPECT_EQ(line.file, "WebServiceBroker");
        EXPECT_EQ(line.text.find("p&w"), std::string::npos);
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "\nWebServiceBroker.authenticate. Result status code is 200",
                  "\nExpected return values (if any of the following are nil, an error has been "
                  "encountered. Perhaps a node name has changed or a value for the node was not "
                  "supplied, and the app cannot continue successfully):",
                  "\n\tAuthenticationResult. Value = true", "\n\taccountStatus. Value = Active",
                  "\n\tbackupServerName. Value = (null)"}));
}

TEST(Authenticate, AnHttpErrorWithAResultIsStillAResult)
{
    const RawServer server(test::soapAnswer("<AuthenticateResult>false</AuthenticateResult>", 500));
    const test::TestBundle bundle(
        test::settingsWith("Authenticate", test::methodEntry(server.url(), {})));
    const auto result = WebServiceBroker::authenticateForUsername("a", "b", nullptr);
    ASSERT_TRUE(result);
    EXPECT_EQ(*find(*result, "resStatusCode"), Value("500"));
}

TEST(Authenticate, WithoutHttpResponseTheStatusIsMinusOne)
{
    // A helper of the test's own, whose result holds no response.
    const test::TemporaryFolder folder;
    const auto archive = folder.write(
        "archive",
        platform::writeBinaryPropertyList(Dictionary{{"AuthenticateResult", "true"}}).value());
    const auto helper = folder.write("WebServiceCaller", "#!/bin/sh\ncat " + archive.string() +
                                                             "; exec 1>&-; read r; exit 0\n");
    std::filesystem::permissions(helper, std::filesystem::perms::owner_all);
    const test::TestBundle bundle(test::settingsWith("Authenticate", test::methodEntry("u", {})),
                                  {}, folder.path());
    const auto result = WebServiceBroker::authenticateForUsername("a", "b", nullptr);
    ASSERT_TRUE(result);
    EXPECT_EQ(*find(*result, "resStatusCode"), Value("-1"));
}

TEST(Authenticate, AFailedCallIsAbsentWithTheCallsError)
{
    const RawServer server(test::httpAnswer(test::wireBody("fault.response.http"), 500));
    const test::TestBundle bundle(
        test::settingsWith("Authenticate", test::methodEntry(server.url(), {})));
    std::optional<Error> error;
    EXPECT_FALSE(WebServiceBroker::authenticateForUsername("a", "b", &error));
    EXPECT_EQ(error->code, 200);
}

TEST(CreateAccount, SucceedsOnSuccessInAnyCase)
{
    std::atomic<const char*> word = "";
    const RawServer server([&word](const std::string&, const test::RawConnection& connection) {
        connection.send(test::soapAnswer("<r>" + std::string(word) + "</r>"));
    });
    const test::TestBundle bundle(test::settingsWith(
        "CreateAccount",
        test::methodEntry(server.url(), {"FIRSTNAME", "USERNAME", "PASSWORD", "EMAILID"}, "r")));
    for (const char* yes : {"Success", "success", "SUCCESS"}) {
        word = yes;
        EXPECT_TRUE(
            WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "pw", "a@b.c", nullptr));
    }
    for (const char* no : {"Success.", "Failure", "", " Success"}) {
        word = no;
        std::optional<Error> error = platform::makeError("stale", 1, "stale");
        EXPECT_FALSE(
            WebServiceBroker::creatAccountWithFirstname("Ann", "ann", "pw", "a@b.c", &error));
        EXPECT_FALSE(error) << no;
    }
    EXPECT_NE(server.requests().at(0).find(
                  "<FIRSTNAME>Ann</FIRSTNAME><USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD>"
                  "<EMAILID>a@b.c</EMAILID>"),
              std::string::npos);
}

TEST(CreateTrial, SendsEveryValueAndSucceedsOnSuccessInAnyCase)
{
    const RawServer server(test::soapAnswer("<r><Code>SUCCESS</Code></r>"));
    const test::TestBundle bundle(
        test::settingsWith("CreateTrialAccount",
                           test::methodEntry(server.url(), kTrialPlaceholders, "r")),
        {{"TW_ReferalCode", "REF&1"}});
    std::optional<Error> error;
    EXPECT_TRUE(createTrial(&error, true));
    EXPECT_FALSE(error);
    EXPECT_NE(server.requests().at(0).find(
                  "<FIRSTNAME>Ann</FIRSTNAME><USERNAME>ann</USERNAME><PASSWORD>pw</PASSWORD>"
                  "<EMAIL>a@b.c</EMAIL><CUSTOMERTYPECODE>T1</CUSTOMERTYPECODE>"
                  "<ISSEALGUARD>1</ISSEALGUARD><SECRETQUESTION>Pet?</SECRETQUESTION>"
                  "<ANSWER>Rex</ANSWER><REFERALCODE>REF&amp;1</REFERALCODE>"),
              std::string::npos);
}

TEST(CreateTrial, WithoutReferralCodeSendsAnEmptyOne)
{
    const RawServer server(test::soapAnswer("<r><Code>success</Code></r>"));
    const test::TestBundle bundle(test::settingsWith(
        "CreateTrialAccount", test::methodEntry(server.url(), kTrialPlaceholders, "r")));
    EXPECT_TRUE(createTrial(nullptr));
    EXPECT_NE(server.requests().at(0).find("<REFERALCODE></REFERALCODE>"), std::string::npos);
    EXPECT_NE(server.requests().at(0).find("<ISSEALGUARD>0</ISSEALGUARD>"), std::string::npos);
}

TEST(CreateTrial, ARefusalCarriesTheServicesMessage)
{
    const RawServer server(test::soapAnswer("<r><Code>Bad</Code><Message>Nice try.</Message></r>"));
    const test::TestBundle bundle(
        test::settingsWith("CreateTrialAccount", test::methodEntry(server.url(), {}, "r")));
    std::optional<Error> error = platform::makeError("other", 1, "replaced");
    EXPECT_FALSE(createTrial(&error));
    EXPECT_EQ(error->domain, "com.Stowline.Application");
    EXPECT_EQ(error->code, 250);
    EXPECT_EQ(error->localizedDescription(), "Nice try.");
    EXPECT_EQ(error->kind, FailureKind::refusedByService);
    EXPECT_EQ(platform::findText(error->userInfo, platform::kServiceCodeKey), "Bad");
    EXPECT_FALSE(createTrial(nullptr));
}

TEST(CreateTrial, ARefusalWithoutMessageCarriesTheWordsOfItsCode)
{
    const RawServer server(test::soapAnswer("<r><Code>UserNameTaken</Code></r>"));
    const test::TestBundle bundle(
        test::settingsWith("CreateTrialAccount", test::methodEntry(server.url(), {}, "r")));
    std::optional<Error> error;
    EXPECT_FALSE(createTrial(&error));
    EXPECT_EQ(error->localizedDescription(), "User name taken");
}

TEST(CreateTrial, AFailedCallKeepsTheCallsError)
{
    const RawServer server(test::httpAnswer("<html/>"));
    const test::TestBundle bundle(
        test::settingsWith("CreateTrialAccount", test::methodEntry(server.url(), {}, "r")));
    std::optional<Error> error;
    EXPECT_FALSE(createTrial(&error));
    EXPECT_EQ(error->code, 200);
}

TEST(EncryptString, EscapesTheTextAndReturnsTheServicesUnchanged)
{
    const RawServer server(test::soapAnswer("<r> c&amp;d </r>"));
    const test::TestBundle bundle(test::settingsWith(
        "EncryptString", test::methodEntry(server.url(), {"SOURCESTRING"}, "r")));
    EXPECT_EQ(WebServiceBroker::encryptString("a&b<c"), Value(" c&d "));
    EXPECT_NE(server.requests().at(0).find("<SOURCESTRING>a&amp;b&lt;c</SOURCESTRING>"),
              std::string::npos);
}

TEST(DecryptString, IsAbsentOnAnyFailure)
{
    const RawServer server(test::httpAnswer("<html/>"));
    const test::TestBundle bundle(test::settingsWith(
        "DecryptString", test::methodEntry(server.url(), {"SOURCESTRING"}, "r")));
    EXPECT_FALSE(WebServiceBroker::decryptString("x"));
}

} // namespace
} // namespace stowline
