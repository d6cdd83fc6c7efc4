#include "stowline/soap/Envelope.h"

#include "tests/support/DevServerProcess.h"

#include <gtest/gtest.h>

namespace stowline::soap {
namespace {

TEST(Envelope, MatchesTheCapture)
{
    const Invocation invocation{
        "Authenticate",
        "http://stowline.example/account",
        std::nullopt,
        {{"userName", "<<USERNAME>>"}, {"password", "<<PASSWORD>>"}, {"partner", "<<PARTNER>>"}},
        {{"<<USERNAME>>", "ann & bob"}, {"<<PASSWORD>>", "p<w>\"'é"}}};
    EXPECT_EQ(envelopeFor(invocation), test::wireBody("authenticate.request.http"));
}

TEST(ParameterElement, UnfilledPlaceholderIsNil)
{
    EXPECT_EQ(parameterElement("p", "<<USERNAME>>", {}), "<p xsi:nil=\"true\" />");
    EXPECT_EQ(parameterElement("p", "<<A>> and <<B>>", {}), "<p xsi:nil=\"true\" />");
    EXPECT_EQ(parameterElement("p", "<<A>> and", {}), "<p><<A>> and</p>");
}

TEST(ParameterElement, FilledPlaceholderIsEscapedOnce)
{
    EXPECT_EQ(parameterElement("p", "<<USERNAME>>", {{"<<USERNAME>>", "a<b"}}), "<p>a&lt;b</p>");
    EXPECT_EQ(parameterElement("p", "<<A>>", {{"<<A>>", "&lt;"}}), "<p>&amp;lt;</p>");
    EXPECT_EQ(parameterElement("p", "<<A>>", {{"<<A>>", ""}}), "<p></p>");
}

TEST(ParameterElement, AValueCanNeverMakeAnElementNil)
{
    EXPECT_EQ(parameterElement("p", "<<A>>", {{"<<A>>", "<<x>>"}}), "<p>&lt;&lt;x&gt;&gt;</p>");
}

TEST(ParameterElement, AValueCanNeverBeTakenForTheElementName)
{
    EXPECT_EQ(parameterElement("p", "<<A>>", {{"<<A>>", "50%@ %s"}}), "<p>50%@ %s</p>");
}

TEST(ParameterElement, KeepsACarriageReturn)
{
    EXPECT_EQ(parameterElement("p", "<<A>>", {{"<<A>>", "a\r\nb"}}), "<p>a&#13;\nb</p>");
}

TEST(Envelope, HeaderFragmentsStandInTheHeader)
{
    const Invocation invocation{"M", "urn:n", std::vector<std::string>{"<a/>", "<b/>"}, {}, {}};
    EXPECT_NE(envelopeFor(invocation).find("<soap:Header><a/><b/></soap:Header><soap:Body>"),
              std::string::npos);
    const Invocation empty{"M", "urn:n", std::vector<std::string>{}, {}, {}};
    EXPECT_NE(envelopeFor(empty).find("<soap:Header></soap:Header>"), std::string::npos);
    const Invocation none{"M", "urn:n", std::nullopt, {}, {}};
    EXPECT_EQ(envelopeFor(none).find("Header"), std::string::npos);
}

TEST(Envelope, EscapesTheNamespace)
{
    const Invocation invocation{"M", "urn:a&\"b\"<", std::nullopt, {}, {}};
    EXPECT_NE(envelopeFor(invocation).find("<M xmlns=\"urn:a&amp;&quot;b&quot;&lt;\">"),
              std::string::npos);
}

TEST(SoapAction, JoinsNamespaceAndMethodByOneSlash)
{
    EXPECT_EQ(defaultSoapAction("http://s/a", "M"), "\"http://s/a/M\"");
    EXPECT_EQ(defaultSoapAction("http://s/a/", "M"), "\"http://s/a/M\"");
}

} // namespace
} // namespace stowline::soap
