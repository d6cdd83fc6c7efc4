#include "devserver/AccountService.h"
#include "devserver/FaultPlan.h"
#include "devserver/SoapEndpoint.h"
#include "devserver/Wsdl.h"
#include "stowline/logging/CountingLogger.h"
#include "stowline/logging/DDLog.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/XmlReader.h"
#include "stowline/soap/SoapMessage.h"
#include "tests/support/DevServerProcess.h"
#include "tests/support/TestPaths.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>

namespace stowline::devserver {
namespace {

class AccountServiceTest : public testing::Test {
protected:
    Dictionary call(const std::string& method, const Dictionary& parameters)
    {
        return service_.find(method)->answer(parameters);
    }

    Answer post(const std::string& body) { return answerCall(service_, body); }

    test::TemporaryFolder folder_;
    Accounts accounts_{folder_.path() / "service.sqlite"};
    Storage storage_{folder_.path()};
    AccountServiceContext context_{accounts_, storage_, platform::randomBytes(32),
                                   "127.0.0.1:8443"};
    Service service_ = accountService(context_);
};

/// The capture's user: "ann & bob" with the password of the capture.
const Dictionary kAnn{{"firstName", "Ann"},
                      {"userName", "ann & bob"},
                      {"password", "p<w>\"'é"},
                      {"emailID", "a@b.c"}};

TEST_F(AccountServiceTest, AnswersTheCapturedRequestWithTheCapturedAnswer)
{
    ASSERT_EQ(call("CreateAccount", kAnn), (Dictionary{{"CreateAccountResult", "Success"}}));
    const Answer answer = post(test::wireBody("authenticate.request.http"));
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.contentType, "text/xml; charset=utf-8");
    const auto expected = soap::readMessage(test::wireBody("authenticate.response.http")).message;
    const auto given = soap::readMessage(answer.body).message;
    ASSERT_TRUE(given);
    EXPECT_EQ(given->element, expected->element);
    EXPECT_EQ(given->namespaceUri, expected->namespaceUri);
    EXPECT_EQ(given->content, expected->content);
    // The parts that reading drops stand in the text.
    EXPECT_NE(answer.body.find("<message xsi:nil=\"true\"/>"), std::string::npos);
    EXPECT_NE(answer.body.find("<greeting></greeting>"), std::string::npos);
}

TEST_F(AccountServiceTest, RefusesWrongPasswordsAndUnknownUsers)
{
    (void)call("CreateAccount", kAnn);
    for (const Dictionary& parameters :
         {Dictionary{{"userName", "ann & bob"}, {"password", "wrong"}},
          Dictionary{{"userName", "nobody"}, {"password", ""}}, Dictionary{}})
        EXPECT_EQ(call("Authenticate", parameters), (Dictionary{{"AuthenticateResult", "false"},
                                                                {"accountStatus", "Unknown"},
                                                                {"greeting", ""}}));
}

TEST_F(AccountServiceTest, RefusesAccountsItCannotOpen)
{
    const auto result = [&](std::string_view key, const Value& value) {
        Dictionary parameters = kAnn;
        parameters.insert_or_assign(std::string(key), value);
        return call("CreateAccount", parameters).at("CreateAccountResult").text();
    };
    EXPECT_EQ(result("userName", ""), "InvalidUserName");
    EXPECT_EQ(result("password", ""), "InvalidPassword");
    EXPECT_EQ(result("emailID", "nowhere"), "InvalidEmailAddress");
    EXPECT_EQ(result("firstName", "Ann"), "Success");
    EXPECT_EQ(result("firstName", "Ann"), "UserNameAlreadyExists");
}

TEST_F(AccountServiceTest, TrialRefusalsComeWithAndWithoutMessage)
{
    Dictionary parameters{{"userName", "t"}, {"password", "p"}, {"email", "no"}};
    EXPECT_EQ(call("CreateTrialAccount", parameters),
              (Dictionary{{"CreateTrialAccountResult",
                           Dictionary{{"Code", "InvalidEmailAddress"},
                                      {"Message",
                                       "Please give an e-mail address like name@example.com."}}}}));
    parameters.insert_or_assign("email", "a@b");
    const auto code = [&] {
        return valueAtKeyPath(call("CreateTrialAccount", parameters),
                              "CreateTrialAccountResult.Code");
    };
    EXPECT_EQ(code(), Value("Success"));
    EXPECT_EQ(code(), Value("UserNameAlreadyExists"));
}

TEST_F(AccountServiceTest, EncryptsWithItsOwnKey)
{
    const auto box = call("EncryptString", {{"sourceString", "häuser & <co>"}});
    const std::string text = box.at("EncryptStringResult").text();
    EXPECT_EQ(text.find("co"), std::string::npos);
    EXPECT_EQ(call("DecryptString", {{"sourceString", text}}),
              (Dictionary{{"DecryptStringResult", "häuser & <co>"}}));
    EXPECT_NE(call("EncryptString", {{"sourceString", "häuser & <co>"}}), box);
    for (const char* other : {"", "zz", "00"})
        EXPECT_THROW(call("DecryptString", {{"sourceString", other}}), ServiceFault);
}

TEST_F(AccountServiceTest, KeepsNoPasswordInTheClear)
{
    (void)call("CreateTrialAccount", {{"userName", "u"},
                                      {"password", "very-secret-password"},
                                      {"answer", "very-secret-answer"},
                                      {"email", "a@b"}});
    for (const auto& file : std::filesystem::directory_iterator(folder_.path())) {
        const auto content = platform::readFile(file.path()).value();
        EXPECT_EQ(content.find("very-secret"), std::string::npos) << file.path();
    }
}

TEST_F(AccountServiceTest, WhatIsWrongWithARequestIsAFault)
{
    const auto reason = [&](const std::string& body) {
        const Answer answer = post(body);
        EXPECT_EQ(answer.status, 500);
        const auto message = soap::readMessage(answer.body).message;
        return message && message->fault ? message->fault->reason : "(no fault)";
    };
    EXPECT_EQ(reason(platform::replacingOccurrences(test::wireBody("authenticate.request.http"),
                                                    "Authenticate", "Unknown")),
              "The method Unknown was not found at this address");
    EXPECT_EQ(reason(platform::replacingOccurrences(test::wireBody("authenticate.request.http"),
                                                    "stowline.example/account", "other")),
              "The method Authenticate is of the namespace http://stowline.example/account");
    EXPECT_TRUE(reason("no XML").starts_with("The request cannot be read: "));
}

TEST_F(AccountServiceTest, WhatTheServiceCannotReadIsInItsLogAndNotInTheAnswer)
{
    const auto log = std::make_shared<CountingLogger>();
    DDLog::addLogger(log);
    service_.methods.front().handle = [](const Dictionary&) -> HandledCall {
        throw std::runtime_error("unable to open /srv/data/service.sqlite");
    };
    const std::string method = service_.methods.front().name;
    const Answer answer = post(platform::replacingOccurrences(
        test::wireBody("authenticate.request.http"), "Authenticate", method));
    const auto message = soap::readMessage(answer.body).message;
    ASSERT_TRUE(message && message->fault);
    EXPECT_EQ(message->fault->code, "soap:Server");
    EXPECT_EQ(message->fault->reason, "The service cannot read its data now. Its log says why.");
    DDLog::flushLog();
    EXPECT_TRUE(
        log->hasLine(method + " cannot be carried out: unable to open /srv/data/service.sqlite"));
    DDLog::removeLogger(log);
}

TEST(PasswordHash, MatchesItsOwnPasswordOnly)
{
    const std::string stored = platform::storedPassword("p");
    EXPECT_TRUE(platform::passwordMatches("p", stored));
    EXPECT_FALSE(platform::passwordMatches("q", stored));
    EXPECT_FALSE(platform::passwordMatches("p", ""));
    EXPECT_NE(platform::storedPassword("p"), stored); // salted
}

TEST(FaultPlan, FailsTheCallThatWasNamed)
{
    FaultPlan plan;
    EXPECT_FALSE(plan.add("A:2:html"));
    EXPECT_FALSE(plan.add("B:*:stall"));
    EXPECT_FALSE(plan.next("A"));
    EXPECT_EQ(plan.next("A"), FaultKind::htmlPage);
    EXPECT_FALSE(plan.next("A"));
    EXPECT_EQ(plan.next("B"), FaultKind::stall);
    EXPECT_EQ(plan.next("B"), FaultKind::stall);
}

TEST(FaultPlan, SaysWhatIsWrongWithAText)
{
    FaultPlan plan;
    EXPECT_EQ(plan.add("A"), "\"A\" is not a fault: write METHOD:N:KIND.");
    EXPECT_EQ(plan.add("A:0:html"), "\"0\" is not the number of a call: write 1, 2, … or *.");
    EXPECT_EQ(plan.add("A:1:fire"), "\"fire\" is not a kind of fault.");
}

TEST(Wsdl, IsWellFormedAndNamesEveryMethod)
{
    class Reader final : public platform::XmlHandler {
    public:
        Refusal startElement(platform::XmlName, const platform::XmlAttributes&) override
        {
            return std::nullopt;
        }
        Refusal endElement() override { return std::nullopt; }
        void characters(std::string_view) override {}
    } reader;
    test::TemporaryFolder folder;
    Accounts accounts(folder.path() / "s.sqlite");
    Storage storage(folder.path());
    const AccountServiceContext context{accounts, storage, Data(32), ""};
    const Service service = accountService(context);
    const std::string wsdl = wsdlFor(service, "http://127.0.0.1:1/AccountService.asmx");
    EXPECT_FALSE(platform::readXml(wsdl, reader));
    for (const auto& method : service.methods)
        EXPECT_NE(wsdl.find("<operation name=\"" + method.name + "\">"), std::string::npos);
}

// ---- the program ----

TEST(DevServer, AnnouncesItsPortOnStandardOutputAndInAFile)
{
    const test::TemporaryFolder folder;
    const auto portFile = folder.path() / "port";
    test::BackgroundProgram server(
        {{test::builtProgram("stowline-devserver"), "--data", (folder.path() / "d").string(),
          "--port-file", portFile.string()}});
    const auto line = server.readLine();
    ASSERT_TRUE(line);
    const auto port = platform::readFile(portFile);
    ASSERT_TRUE(port);
    EXPECT_EQ(*line + "\n", "listening http://127.0.0.1:" + *port);
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait().status, 0);
}

TEST(DevServer, KeepsAccountsAndKeyOverARestart)
{
    const test::TemporaryFolder folder;
    EXPECT_EQ(encryptionKeyIn(folder.path() / "key"), encryptionKeyIn(folder.path() / "key"));
    struct stat status {};
    ::stat((folder.path() / "key").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    const NewAccount account{.userName = "u", .password = "p", .email = "a@b"};
    EXPECT_EQ(Accounts(folder.path() / "db").open(account), AccountOutcome::success);
    EXPECT_EQ(Accounts(folder.path() / "db").signIn("u", "p"), "Active");
}

TEST(DevServer, RefusesWrongArgumentsWithASentence)
{
    const test::TemporaryFolder folder;
    const auto run = [&](std::vector<std::string> words) {
        words.insert(words.begin(),
                     {test::builtProgram("stowline-devserver"), "--data", folder.path().string()});
        return test::runProgram({words});
    };
    EXPECT_EQ(run({"--fault", "A:1:fire"}).status, 2);
    EXPECT_NE(run({"--fault", "A:1:fire"}).errors.find("\"fire\" is not a kind of fault."),
              std::string::npos);
    EXPECT_EQ(run({"--tls-key", "x"}).status, 2);
    EXPECT_EQ(run({"--port", "99999"}).status, 2);
    EXPECT_EQ(run({"--bundle", "/proc/nothing"}).status, 1);
}

TEST(DevServer, AnOrdinarySoapClientCanUseIt)
{
    const test::TemporaryFolder folder;
    const test::DevServerProcess server(
        {"--monitoring-tokens", folder.write("tokens", "another\nzeep-token\n").string()});
    const auto result = test::runProgram(
        {{"/usr/bin/python3", test::sourceFile("tests/soap_client.py"), server.address()}});
    EXPECT_EQ(result.status, 0) << result.output << result.errors;
    EXPECT_EQ(result.output, "every method answered as expected\n");
}

} // namespace
} // namespace stowline::devserver
