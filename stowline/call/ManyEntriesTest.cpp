// Answers with very many entries, from their bytes to the caller's values: whole, and in time in
// proportion to their length.
#include "stowline/call/CallArchive.h"
#include "stowline/call/ResultMaking.h"
#include "stowline/soap/SoapMessage.h"

#include <gtest/gtest.h>

#include <ctime>

namespace stowline {
namespace {

std::string messageWith(std::size_t entries)
{
    std::string text = "<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body>"
                       "<R><items>";
    for (std::size_t i = 0; i < entries; ++i)
        text += "<FileInfo><Name>file " + std::to_string(i) + ".txt</Name><FileID>" +
                std::to_string(i) +
                "</FileID><IsFolder>false</IsFolder><Size>1024</Size></FileInfo>";
    return text + "</items></R></e:Body></e:Envelope>";
}

/// What the caller gets of an answer, by way of the archive.
std::optional<Value> received(const std::string& answer)
{
    auto reading = soap::readMessage(answer);
    EXPECT_EQ(reading.failure, "");
    if (!reading.message)
        return std::nullopt;
    const auto bytes =
        archive(archivableResult(resultFromMessage(*reading.message, "HTTP/1.1 200 OK\r\n\r\n")));
    reading = {};
    return bytes ? unarchive(*bytes) : std::nullopt;
}

const Array* entriesOf(const std::optional<Value>& result)
{
    const auto found =
        result ? platform::valueAtKeyPath(*result, "kWSMethodInvocationResult.items.FileInfo")
               : std::nullopt;
    static Value kept;
    kept = found.value_or(Value());
    return std::as_const(kept).array();
}

std::clock_t timeFor(std::size_t entries)
{
    const std::string answer = messageWith(entries);
    const std::clock_t start = std::clock();
    const auto result = received(answer);
    const std::clock_t took = std::clock() - start;
    const Array* list = entriesOf(result);
    EXPECT_TRUE(list && list->size() == entries);
    return took;
}

TEST(ManyEntries, HalfAMillionArriveWhole)
{
    constexpr std::size_t entries = 500'000;
    const auto result = received(messageWith(entries));
    const Array* list = entriesOf(result);
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), entries);
    for (const std::size_t at : {std::size_t(0), entries / 2, entries - 1})
        EXPECT_EQ((*list)[at], Value(Dictionary{{"Name", "file " + std::to_string(at) + ".txt"},
                                                {"FileID", std::to_string(at)},
                                                {"IsFolder", "false"},
                                                {"Size", "1024"}}));
}

TEST(ManyEntries, TakeTimeInProportion)
{
    constexpr std::size_t few = 10'000;
    (void)timeFor(few);
    EXPECT_LT(timeFor(8 * few), 24 * timeFor(few)); // in proportion 8, quadratic 64
}

} // namespace
} // namespace stowline
