#include "stowline/call/CallArchive.h"
#include "stowline/call/ResultMaking.h"
#include "stowline/call/WebServiceCallRequest.h"
#include "stowline/call/WireNames.h"

#include "stowline/platform/text/Text.h"
#include "stowline/util/Base64.h"

#include <gtest/gtest.h>

namespace stowline {
namespace {

TEST(WebServiceCallRequest, AbsentPartsLeaveTheirKeysOut)
{
    EXPECT_EQ(WebServiceCallRequest().dictionary(), Dictionary());
    const WebServiceCallRequest request{.url = "http://h/", .methodName = "M"};
    EXPECT_EQ(request.dictionary(), (Dictionary{{"url", "http://h/"}, {"methodName", "M"}}));
}

TEST(WebServiceCallRequest, ComesBackFromItsDictionary)
{
    const WebServiceCallRequest request{"http://h/", Dictionary{{"namespace", "n"}}, "M",
                                        SubstitutionMap{{"<<A>>", 1}}, SubstitutionMap{}};
    EXPECT_EQ(WebServiceCallRequest::fromDictionary(request.dictionary()).dictionary(),
              request.dictionary());
}

TEST(WebServiceCallRequest, PartsOfAnotherTypeAreAbsent)
{
    const auto request = WebServiceCallRequest::fromDictionary(
        {{"url", 5}, {"methodInfo", "x"}, {"methodName", Array{}}, {"soapParamSubstitutions", 1}});
    EXPECT_EQ(request.dictionary(), Dictionary());
}

TEST(CallArchive, RequestTravelsAsOneLineOfBase64)
{
    Dictionary request{{"url", std::string(100000, 'x')}};
    const auto text = encodedRequest(request);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->find('\n'), std::string::npos);
    EXPECT_EQ(unarchive(platform::textFromData(Base64::dataWithBase64EncodedString(*text))),
              Value(request));
}

TEST(CallArchive, OnlyArchivesAreUnarchived)
{
    EXPECT_FALSE(unarchive(""));
    EXPECT_FALSE(unarchive("garbage"));
    EXPECT_FALSE(unarchive("<plist><string>x</string></plist>"));
    EXPECT_FALSE(archive(std::string("a\0b", 3)));
}

TEST(CallResult, CarriesTheChildrenTwice)
{
    const soap::Message message{.element = "R", .content = Dictionary{{"a", "1"}}};
    const auto result = resultFromMessage(message, "HTTP/1.1 200 OK\r\n\r\nx");
    EXPECT_EQ(result, (Dictionary{{"a", "1"},
                                  {"kWSMethodInvocationResult", Dictionary{{"a", "1"}}},
                                  {"kWSHTTPResponseMessage",
                                   platform::dataFromText("HTTP/1.1 200 OK\r\n\r\nx")}}));
    EXPECT_FALSE(WSMethodResultIsFault(result));
}

TEST(CallResult, AnAnswerCannotPassForAFaultOrHideTheResponse)
{
    const soap::Message message{
        .element = "R",
        .content = Dictionary{{"kWSFaultString", "x"}, {"kWSHTTPResponseMessage", "y"}}};
    const auto result = resultFromMessage(message, "raw");
    EXPECT_FALSE(WSMethodResultIsFault(result));
    EXPECT_EQ(*find(result, kWSHTTPResponseMessage), Value(platform::dataFromText("raw")));
}

TEST(CallResult, FaultsAreFaults)
{
    const soap::Message message{.element = "Fault",
                                .content = Dictionary{},
                                .fault = soap::Fault{"soap:Server", "why", Value("d")}};
    const auto result = resultFromMessage(message, "raw");
    EXPECT_TRUE(WSMethodResultIsFault(result));
    EXPECT_EQ(*find(result, "kWSFaultCode"), Value("soap:Server"));
    EXPECT_EQ(*find(result, "kWSFaultString"), Value("why"));
    EXPECT_EQ(*find(result, "kWSFaultDetail"), Value("d"));
    EXPECT_TRUE(WSMethodResultIsFault(faultResult(kFaultCodeNoAnswer, "why")));
    EXPECT_EQ(find(faultResult(kFaultCodeNoAnswer, "why"), kWSHTTPResponseMessage), nullptr);
}

TEST(CallResult, AFaultTellsItsKind)
{
    using enum FailureKind;
    const auto none = [](FailureKind kind) {
        return failureKindOf(faultResult(kFaultCodeNoAnswer, "why", {}, kind));
    };
    EXPECT_EQ(none(certificate), certificate);
    EXPECT_EQ(none(unspecified), connection);
    EXPECT_EQ(failureKindOf(faultResult(kFaultCodeUnsendable, "why")), unsendableValue);
    const auto unreadable = [](std::string_view response) {
        return failureKindOf(faultResult(kFaultCodeUnreadableAnswer, "why", response));
    };
    EXPECT_EQ(unreadable("HTTP/1.1 200 OK\r\n\r\n"), unreadableAnswer);
    EXPECT_EQ(unreadable("HTTP/1.1 400 Bad\r\n\r\n"), badRequest);
    EXPECT_EQ(unreadable("HTTP/1.1 407 Proxy\r\n\r\n"), proxyRefused);
    EXPECT_EQ(unreadable("HTTP/1.1 413 Large\r\n\r\n"), requestTooLarge);
}

TEST(CallResult, TheServiceCannotPassItsFaultOffAsAnotherFailure)
{
    const soap::Message message{
        .element = "Fault",
        .content = Dictionary{},
        .fault = soap::Fault{"Client.NoAnswer", "why", Dictionary{{"failureKind", "certificate"}}}};
    EXPECT_EQ(failureKindOf(resultFromMessage(message, "HTTP/1.1 500 No\r\n\r\n")),
              FailureKind::fault);
}

TEST(CallResult, EntriesThatCannotBeArchivedAreDropped)
{
    const Value bad(std::string("a\0b", 3));
    EXPECT_EQ(archivableResult({{"good", "x"},
                                {"nul", bad},
                                {"nested", Array{Dictionary{{"k", bad}}}},
                                {"bytes", "\xff"},
                                {"data", Data{0}}}),
              (Dictionary{{"good", "x"}, {"data", Data{0}}}));
}

} // namespace
} // namespace stowline
