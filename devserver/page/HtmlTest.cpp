// Pieces of the page: text from outside, tables, forms, plots, heads of records.
#include "devserver/page/Html.h"
#include "devserver/page/FormFields.h"
#include "devserver/page/RunHead.h"
#include "devserver/page/SizePlot.h"
#include "stowline/platform/files/GzipStream.h"

#include <gtest/gtest.h>

namespace stowline::devserver {
namespace {

TEST(Html, HoldsNamesApart)
{
    EXPECT_EQ(htmlName("<script>\"'&"), "<bdi>&lt;script&gt;&quot;&#39;&amp;</bdi>");
    EXPECT_EQ(htmlName("\xd7\x91\xd7\x99"), "<bdi>\xd7\x91\xd7\x99</bdi>");
    EXPECT_EQ(htmlText("a\xe2\x80\xae"
                       "b\x1b"),
              "a?b?");
    EXPECT_EQ(htmlText("a\xff\xfe<"), "a\xef\xbf\xbd\xef\xbf\xbd&lt;");
}

TEST(Html, WritesSizesAndMoments)
{
    EXPECT_EQ(sizeText(0), "0 B");
    EXPECT_EQ(sizeText(1023), "1023 B");
    EXPECT_EQ(sizeText(1536), "1.5 KB");
    EXPECT_EQ(sizeText(UINT64_MAX), "16.0 EB");
    EXPECT_EQ(htmlTime(momentText(86399)),
              "<time datetime=\"1970-01-01T23:59:59Z\">1970-01-01 23:59:59</time>");
    EXPECT_EQ(htmlTime("<b>"), "&lt;b&gt;");
    EXPECT_EQ(secondsOf("1970-01-02 00:00:01"), 86401);
    EXPECT_EQ(secondsOf("1970-01-02 00:00:01 x"), std::nullopt);
    EXPECT_EQ(secondsOf(""), std::nullopt);
    EXPECT_EQ(agoText(0), "less than a day ago");
    EXPECT_EQ(agoText(86400), "1 day ago");
    EXPECT_EQ(agoText(3 * 86400 - 1), "2 days ago");
    EXPECT_EQ(agoText(-1), "");
}

TEST(Html, TablesNameTheirColumnsAndRows)
{
    const std::string html = htmlTable("h", {{"Name"}, {"Size", true}}, {{"\"k", {"a", "1"}}}, 0);
    EXPECT_NE(html.find("<table role=\"table\" aria-labelledby=\"h\">"), std::string::npos);
    EXPECT_NE(html.find("<th scope=\"col\" role=\"columnheader\" class=\"number\">Size</th>"),
              std::string::npos);
    EXPECT_NE(html.find("data-key=\"&quot;k\""), std::string::npos);
    EXPECT_NE(html.find("<th scope=\"row\" role=\"rowheader\" data-label=\"Name\"><div>a</div></th>"
                        "<td role=\"cell\" data-label=\"Size\" class=\"number\"><div>1</div></td>"),
              std::string::npos)
        << html;
}

TEST(FormFields, AreDecoded)
{
    const std::string body = "user=a%26b+c%C3%A9%zz%&password=p=1&user=other&%6eame=x";
    EXPECT_EQ(formField(body, "user"), "a&b c\xc3\xa9%zz%");
    EXPECT_EQ(formField(body, "password"), "p=1");
    EXPECT_EQ(formField(body, "name"), "x");
    EXPECT_EQ(formField(body, "none"), std::nullopt);
    EXPECT_EQ(formField("user", "user"), "");
    EXPECT_EQ(formField("user=%4", "user"), "%4");
    EXPECT_EQ(formField("user=%41", "user"), "A");
}

TEST(FormFields, FindACookieByItsWholeName)
{
    EXPECT_EQ(cookieNamed("xs=1; s=2; s=3", "s"), "2");
    EXPECT_EQ(cookieNamed("s=a=b", "s"), "a=b");
    EXPECT_EQ(cookieNamed("sx=1", "s"), std::nullopt);
    EXPECT_EQ(cookieNamed("", "s"), std::nullopt);
}

TEST(SizePlot, SaysInWordsWhatItShows)
{
    EXPECT_EQ(plotInWords({{0, 1536, 0}}), "1.5 KB now; nothing was noted before.");
    EXPECT_EQ(plotInWords({{0, 1, 0}, {60, 9, 0}, {120, 3, 1}}),
              "From 1 B at 1970-01-01 00:00:00 to 3 B now. The most was 9 B.");
}

TEST(SizePlot, HoldsEachValueUntilTheNext)
{
    const std::string html = plotFigure("p", "<ann>", {{0, 0, 0}, {50, 100, 0}, {100, 50, 50}});
    // 640 wide, 160 high, the most 6 below the top.
    EXPECT_NE(html.find("<path class=\"line\" d=\"M0 160.0H320.0V6.0H640.0V83.0H640\"/>"),
              std::string::npos)
        << html;
    EXPECT_NE(html.find("role=\"img\" aria-labelledby=\"p-words\""), std::string::npos);
    EXPECT_NE(html.find("<figcaption id=\"p-words\"><bdi>&lt;ann&gt;</bdi>: From 0 B"),
              std::string::npos);
    EXPECT_NE(html.find("<details>"), std::string::npos);
}

TEST(SizePlot, LosesNoPeakOfVeryManyNotes)
{
    std::vector<SpaceNote> notes;
    for (std::int64_t i = 0; i < 10000; ++i)
        notes.push_back({i * 60, i == 5003 ? 1048576U : 1024U, 0});
    const std::string html = plotFigure("p", "ann", notes);
    EXPECT_NE(html.find("V6.0"), std::string::npos); // the top is reached
    EXPECT_NE(html.find("1.0 MB"), std::string::npos);
    EXPECT_LT(html.size(), 100000U);
}

std::optional<RunHead> headIn(const std::string& text, std::size_t cutTo = std::string::npos)
{
    std::string packed;
    platform::GzipWriter writer([&packed](std::string_view bytes) { packed += bytes; });
    writer.write(text);
    writer.finish();
    packed.resize(std::min(packed.size(), cutTo));
    return readRunHead([&packed](std::size_t length) { return packed.substr(0, length); });
}

TEST(RunHead, IsTheFirstLineOfARecord)
{
    const auto head = headIn("{\"record\":\"stowline run\",\"format\":1,\"items\":7,\"failed\":2,"
                             "\"new_bytes\":3,\"bytes\":9}\n{\"path\":\"/\"}\n");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->items, 7U);
    EXPECT_EQ(head->failed, 2U);
    EXPECT_EQ(head->newBytes, 3U);
    EXPECT_EQ(head->bytes, 9U);
}

TEST(RunHead, IsAbsentForWhatIsNoRecord)
{
    EXPECT_FALSE(headIn("{\"record\":\"stowline run\",\"format\":3}\n"));
    EXPECT_FALSE(headIn("{\"record\":\"other\",\"format\":1}\n"));
    EXPECT_FALSE(headIn("no json\n"));
    EXPECT_FALSE(headIn("[1]\n"));
    EXPECT_FALSE(headIn("{\"record\":\"stowline run\",\"format\":1}")); // no end of line
    EXPECT_FALSE(headIn("{\"record\":\"stowline run\",\"format\":1}\n", 12));
    EXPECT_FALSE(readRunHead([](std::size_t) { return std::string("no gzip"); }));
    EXPECT_FALSE(readRunHead([](std::size_t) { return std::string(); }));
}

TEST(RunHead, MayBeLong)
{
    std::string paths; // which packing makes no shorter than the first piece
    for (std::uint32_t i = 0, state = 1; i < 200000; ++i) {
        state = state * 1664525 + 1013904223;
        paths += static_cast<char>('a' + state % 26);
        paths += static_cast<char>('A' + (state >> 8) % 26);
    }
    const auto head = headIn("{\"record\":\"stowline run\",\"format\":2,\"paths\":[\"" + paths +
                             "\"],\"items\":7}\n");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->items, 7U);
    // What packs to nearly nothing is not unpacked without end.
    EXPECT_FALSE(headIn(std::string(20U << 20, 'x') + "\n"));
}

TEST(RunHead, ChainsAreNamedForPeople)
{
    EXPECT_EQ(chainText("abc.ann.default"), "ann, profile default");
    EXPECT_EQ(chainText("abc.=b64=YSBi.=b64=w6k"), "a b, profile \xc3\xa9");
    EXPECT_EQ(chainText("abc.=b64=!!.default"), "abc.=b64=!!.default");
    EXPECT_EQ(chainText("abc"), "abc");
    EXPECT_EQ(chainText("a.b.c.d"), "a.b.c.d");
    EXPECT_EQ(chainText("a..c"), "a..c");
}

} // namespace
} // namespace stowline::devserver
