// Reading a listing of 5,000 entries into a result dictionary, beside expat with empty handlers.
#include "bench/Measure.h"
#include "stowline/call/ResultMaking.h"

#include <expat.h>
#include <fmt/format.h>

#include <cstdlib>

namespace stowline::bench {

namespace {

constexpr int kEntries = 5000;
constexpr int kRounds = 41;

std::string listing()
{
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><s:Envelope "
        "xmlns:s=\"http://schemas.xmlsoap.org/"
        "soap/envelope/\"><s:Body><GetAccountFilesAndFoldersResponse "
        "xmlns=\"http://stowline.example/browse\"><GetAccountFilesAndFoldersResult><Code>Success"
        "</Code></GetAccountFilesAndFoldersResult><items>";
    for (int i = 0; i < kEntries; ++i)
        xml += fmt::format("<FileInfo><Name>Letter number {} &amp; notes.txt</Name><FileID>{}"
                           "</FileID><IsFolder>false</IsFolder><Size>{}</Size></FileInfo>",
                           i, i, i * 4096);
    return xml + "</items><totalCount>5000</totalCount></GetAccountFilesAndFoldersResponse>"
                 "</s:Body></s:Envelope>";
}

void parseWithEmptyHandlers(const std::string& xml)
{
    XML_Parser parser = XML_ParserCreateNS(nullptr, '\x1f');
    XML_SetElementHandler(
        parser, [](void*, const char*, const char**) {}, [](void*, const char*) {});
    XML_SetCharacterDataHandler(parser, [](void*, const char*, int) {});
    if (XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), 1) != XML_STATUS_OK)
        std::exit(1);
    XML_ParserFree(parser);
}

WebServiceCallResult parseIntoResult(const std::string& xml)
{
    const auto reading = soap::readMessage(xml);
    if (!reading.message)
        std::exit(1);
    return resultFromMessage(*reading.message, "");
}

} // namespace

void measureParsing()
{
    const std::string xml = listing();
    std::vector<double> ours;
    std::vector<double> peer;
    for (int round = 0; round < kRounds; ++round) {
        WebServiceCallResult result;
        ours.push_back(microsecondsFor([&] { result = parseIntoResult(xml); }));
        if (result.size() != 5)
            std::exit(1);
        peer.push_back(microsecondsFor([&] { parseWithEmptyHandlers(xml); }));
    }
    const double ratio = median(ours) / median(peer);
    print({{"5,000-entry listing into a result", inMilliseconds(median(ours)),
            "expat " + inMilliseconds(median(peer)), ratio, "≤ 1.5", ratio <= 1.5}});
}

} // namespace stowline::bench
