#include "stowline/soap/SoapMessage.h"

#include "tests/support/DevServerProcess.h"

#include <gtest/gtest.h>

namespace stowline::soap {
namespace {

Message read(const std::string& document)
{
    auto reading = readMessage(document);
    EXPECT_TRUE(reading.message) << reading.failure;
    return reading.message.value_or(Message());
}

std::string enveloped(const std::string& body)
{
    return "<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\""
           " xmlns:i=\"http://www.w3.org/2001/XMLSchema-instance\"><e:Header><h>x</h></e:Header>"
           "<e:Body>" +
           body + "</e:Body></e:Envelope>";
}

std::string failureOf(const std::string& document)
{
    const auto reading = readMessage(document);
    EXPECT_FALSE(reading.message);
    return reading.failure;
}

TEST(SoapMessage, ReadsTheSignInCapture)
{
    const auto message = read(test::wireBody("authenticate.response.http"));
    EXPECT_EQ(message.element, "AuthenticateResponse");
    EXPECT_EQ(message.namespaceUri, "http://stowline.example/account");
    EXPECT_EQ(message.content, Value(Dictionary{{"AuthenticateResult", "true"},
                                                {"accountStatus", "Active"},
                                                {"backupServerName", "127.0.0.1:8443"},
                                                {"greeting", ""}}));
    EXPECT_FALSE(message.fault);
}

TEST(SoapMessage, ReadsListingsOfManyOneAndNone)
{
    const auto file = [](const char* name, const char* id, const char* folder, const char* size) {
        return Dictionary{{"Name", name}, {"FileID", id}, {"IsFolder", folder}, {"Size", size}};
    };
    const auto letters = file("Letters & notes", "17", "true", "0");
    const auto greetings = file("Grüße.txt", "18", "false", "5368709120");
    const auto at = [](const char* capture) {
        return valueAtKeyPath(read(test::wireBody(capture)).content, "items.FileInfo");
    };
    EXPECT_EQ(at("list-many.response.http"), Value(Array{letters, greetings}));
    EXPECT_EQ(at("list-one.response.http"), Value(letters));
    EXPECT_FALSE(at("list-none.response.http"));
    EXPECT_EQ(valueAtKeyPath(read(test::wireBody("list-none.response.http")).content,
                             "GetAccountFilesAndFoldersResult.Code"),
              Value("Success"));
}

TEST(SoapMessage, ReadsAFault)
{
    const auto message = read(test::wireBody("fault.response.http"));
    ASSERT_TRUE(message.fault);
    EXPECT_EQ(message.fault->code, "soap:Server");
    EXPECT_EQ(message.fault->reason, "Database \"accounts\" is not reachable from node 7");
    EXPECT_EQ(message.fault->detail, Value(Dictionary{{"errorId", "4711"}}));
}

TEST(SoapMessage, AFaultOfAnotherNamespaceIsAnAnswer)
{
    EXPECT_FALSE(read(enveloped("<Fault><faultstring>x</faultstring></Fault>")).fault);
}

TEST(SoapMessage, RefusesWhatIsNoSoap)
{
    EXPECT_NE(failureOf(test::wireBody("html.response.http")).find("DOCTYPE"), std::string::npos);
    EXPECT_EQ(failureOf("<html/>"),
              "The answer is not a SOAP 1.1 envelope: it starts with <html> (line 1).");
    EXPECT_EQ(failureOf(""), "The answer is empty.");
    EXPECT_EQ(failureOf("<Envelope/>"),
              "The answer is not a SOAP 1.1 envelope: it starts with <Envelope> (line 1).");
    EXPECT_EQ(failureOf("<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"/>"),
              "The SOAP envelope of the answer has no body.");
    EXPECT_NE(failureOf("plain text").find("not well-formed"), std::string::npos);
}

TEST(SoapMessage, KeepsTextUntrimmedAndDropsBlanksBetweenElements)
{
    EXPECT_EQ(read(enveloped("<R> <a> x </a>\n<b><c>1</c> stray </b> </R>")).content,
              Value(Dictionary{{"a", " x "}, {"b", Dictionary{{"c", "1"}}}}));
}

TEST(SoapMessage, DropsAttributesPrefixesAndNils)
{
    EXPECT_EQ(read(enveloped("<p:R xmlns:p=\"urn:x\"><p:a k=\"v\">1</p:a><b i:nil=\"true\">x</b>"
                             "<c i:nil=\"1\"/><d i:nil=\"false\">y</d><e nil=\"true\">z</e></p:R>"))
                  .content,
              Value(Dictionary{{"a", "1"}, {"d", "y"}, {"e", "z"}}));
}

TEST(SoapMessage, RepeatedSiblingsBecomeAnArrayInDocumentOrder)
{
    EXPECT_EQ(read(enveloped("<R><a>1</a><b>x</b><a>2</a><a/></R>")).content,
              Value(Dictionary{{"a", Array{"1", "2", ""}}, {"b", "x"}}));
}

TEST(SoapMessage, ReadsEntitiesCharacterDataAndEncodings)
{
    EXPECT_EQ(read(enveloped("<R>a&amp;&#233;<![CDATA[<&>]]></R>")).content, Value("a&é<&>"));
    EXPECT_EQ(
        read("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + enveloped("<R>\xe9</R>")).content,
        Value("é"));
}

TEST(SoapMessage, AnEmptyAnswerIsAnEmptyDictionary)
{
    EXPECT_EQ(read(enveloped("<R/>")).content, Value(Dictionary{}));
    EXPECT_EQ(read(enveloped("")).content, Value(Dictionary{}));
    EXPECT_EQ(read(enveloped("")).element, "");
}

TEST(SoapMessage, TakesTheFirstElementOfTheBody)
{
    EXPECT_EQ(read(enveloped("<A><x>1</x></A><B><y>2</y></B>")).content,
              Value(Dictionary{{"x", "1"}}));
}

TEST(SoapMessage, ASecondBodyIsNoPartOfTheAnswer)
{
    const Message message = read(enveloped("</e:Body><e:Body><B><y>2</y></B>"));
    EXPECT_EQ(message.element, "");
    EXPECT_EQ(message.content, Value(Dictionary{}));
}

TEST(SoapMessage, EveryCutIsRefused)
{
    const std::string whole = test::wireBody("list-many.response.http");
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(readMessage(whole.substr(0, length)).message) << length;
}

TEST(SoapMessage, NestingIsBoundedAt256)
{
    const auto nested = [](int levels) {
        std::string open;
        std::string close;
        for (int i = 0; i < levels; ++i) {
            open += "<a>";
            close += "</a>";
        }
        return enveloped(open + close);
    };
    EXPECT_TRUE(readMessage(nested(254)).message); // and Envelope and Body
    EXPECT_NE(failureOf(nested(255)).find("nested deeper than 256"), std::string::npos);
    EXPECT_NE(failureOf(nested(100000)), "");
}

std::string manyElements(std::size_t count)
{
    std::string document = "<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\">"
                           "<e:Body><r>";
    for (std::size_t i = 1; i < count; ++i)
        document += "<e/>";
    return document + "</r></e:Body></e:Envelope>";
}

TEST(SoapMessage, TheNumberOfElementsIsBounded)
{
    EXPECT_TRUE(readMessage(manyElements(1000), {.maximumElements = 1000}).message);
    EXPECT_EQ(readMessage(manyElements(1001), {.maximumElements = 1000}).failure,
              "The answer holds more than 1000 elements (line 1).");
    EXPECT_EQ(MessageLimits().maximumElements, 4'000'000U);
}

TEST(SoapMessage, ReadingEndsAtTheDeadline)
{
    const auto past = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    EXPECT_EQ(readMessage(manyElements(10'000), {.deadline = past}).failure,
              "The answer could not be read within the time of the call (line 1).");
}

TEST(SoapMessage, EntitiesCannotBeDeclared)
{
    EXPECT_NE(
        failureOf("<!DOCTYPE x [<!ENTITY a \"b\">]>" + enveloped("<R>&a;</R>")).find("DOCTYPE"),
        std::string::npos);
}

} // namespace
} // namespace stowline::soap
