#include "stowline/service/ResponseReader.h"

#include "stowline/service/WebServiceBroker.h"

#include <gtest/gtest.h>

#include <cstring>

namespace stowline {
namespace {

using namespace std::chrono_literals;
using Status = platform::ReadStream::Status;
using Moment = std::chrono::steady_clock::time_point;

/// What the stream does next: after so much time, go to a status, with bytes to read.
struct Happening {
    std::chrono::milliseconds after;
    Status status;
    std::string bytes = {};
};

/// A stream that follows a script on a clock of its own.
class ScriptedStream final : public platform::ReadStream {
public:
    explicit ScriptedStream(std::vector<Happening> script) : script_(std::move(script)) {}

    void open() override { status_ = Status::opening; }
    Status status() override
    {
        advance();
        return status_;
    }
    bool await(std::chrono::milliseconds atMost) override
    {
        const Moment next = at_ < script_.size() ? due() : Moment::max();
        const bool comes = next <= now + atMost;
        now = comes ? std::max(now, next) : now + atMost;
        advance();
        return comes;
    }
    bool hasBytesAvailable() override { return !bytes_.empty(); }
    std::ptrdiff_t read(std::span<char> room) override
    {
        largestRead = std::max(largestRead, std::min(room.size(), bytes_.size()));
        const std::size_t count = std::min(room.size(), bytes_.size());
        std::memcpy(room.data(), bytes_.data(), count);
        bytes_.erase(0, count);
        return static_cast<std::ptrdiff_t>(count);
    }
    std::optional<platform::HttpResponseMessage> responseHeader() override { return header; }
    Error error() override { return platform::makeError("stream", 7, "broken"); }

    Moment now{};
    std::size_t largestRead = 0;
    std::optional<platform::HttpResponseMessage> header =
        platform::HttpResponseMessage::fromBytes("HTTP/1.1 200 OK\r\nA: 1\r\n\r\n");

private:
    Moment due() const { return last_ + script_[at_].after; }
    void advance()
    {
        while (at_ < script_.size() && due() <= now) {
            last_ = due();
            status_ = script_[at_].status;
            bytes_ += script_[at_].bytes;
            ++at_;
        }
    }
    std::vector<Happening> script_;
    std::size_t at_ = 0;
    Moment last_{};
    Status status_ = Status::notOpen;
    std::string bytes_;
};

struct Outcome {
    std::optional<Data> body;
    std::optional<platform::HttpResponseMessage> header =
        platform::HttpResponseMessage{.statusLine = "stale"};
    std::optional<Error> error = platform::makeError("stale", 1, "stale");
    std::chrono::milliseconds took{};

    [[nodiscard]] std::string message() const
    {
        return error ? error->localizedDescription() : std::string();
    }
};

Outcome reading(ScriptedStream& stream, double timeoutSeconds = 60)
{
    Outcome outcome;
    outcome.body = readResponse(stream, timeoutSeconds, &outcome.header, &outcome.error,
                                [&stream] { return stream.now; });
    outcome.took = std::chrono::duration_cast<std::chrono::milliseconds>(stream.now - Moment{});
    return outcome;
}

TEST(ResponseReader, ReadsInPiecesToTheEnd)
{
    ScriptedStream stream({{10ms, Status::open},
                           {10ms, Status::open, std::string(100000, 'x')},
                           {10ms, Status::open, "end"},
                           {1ms, Status::atEnd}});
    const Outcome outcome = reading(stream);
    ASSERT_TRUE(outcome.body);
    EXPECT_EQ(outcome.body->size(), 100003U);
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ(outcome.header->headers.size(), 1U);
    EXPECT_EQ(stream.largestRead, 65536U);
}

TEST(ResponseReader, OpeningAsAWholeIsBoundByTheTimeout)
{
    ScriptedStream stream({{300ms, Status::opening}, {300ms, Status::opening}});
    const Outcome outcome = reading(stream, 0.5);
    EXPECT_FALSE(outcome.body);
    EXPECT_FALSE(outcome.header);
    EXPECT_EQ(outcome.error->domain, "com.Stowline.Application");
    EXPECT_EQ(outcome.error->code, 250);
    EXPECT_EQ(outcome.message(), "Request timeout");
    EXPECT_EQ(outcome.took, 500ms);
}

TEST(ResponseReader, AnotherOpeningIsBoundAsAWholeToo)
{
    // The answer was a redirect: another connection is made, over which something moves.
    ScriptedStream stream({{300ms, Status::open},
                           {300ms, Status::opening},
                           {300ms, Status::opening},
                           {300ms, Status::opening}});
    const Outcome cut = reading(stream, 0.5);
    EXPECT_EQ(cut.message(), "Request timeout");
    EXPECT_EQ(cut.took, 1100ms); // the patience begins again with the opening
    ScriptedStream quick({{300ms, Status::open},
                          {400ms, Status::opening},
                          {400ms, Status::open},
                          {400ms, Status::open, "abc"},
                          {400ms, Status::atEnd}});
    EXPECT_TRUE(reading(quick, 0.5).body);
}

TEST(ResponseReader, WhileReadingOnlySilenceIsBound)
{
    std::vector<Happening> script{{400ms, Status::open}};
    for (int i = 0; i < 20; ++i)
        script.push_back({400ms, Status::open, "x"});
    script.push_back({400ms, Status::atEnd});
    ScriptedStream steady(script);
    const Outcome whole = reading(steady, 0.5);
    ASSERT_TRUE(whole.body) << whole.message();
    EXPECT_EQ(whole.body->size(), 20U);

    ScriptedStream silent({{400ms, Status::open}, {400ms, Status::open, "x"}});
    const Outcome cut = reading(silent, 0.5);
    EXPECT_FALSE(cut.body);
    EXPECT_EQ(cut.message(), "Request timeout");
    EXPECT_EQ(cut.took, 1300ms);
}

TEST(ResponseReader, BytesThatAreSentAreNoSilence)
{
    std::vector<Happening> script{{1ms, Status::open}};
    for (int i = 0; i < 10; ++i)
        script.push_back({400ms, Status::open}); // something moved, nothing to read
    script.push_back({1ms, Status::atEnd});
    ScriptedStream stream(script);
    EXPECT_TRUE(reading(stream, 0.5).body);
}

TEST(ResponseReader, WaitsSixtySecondsWhenTold)
{
    ScriptedStream stream({});
    EXPECT_EQ(reading(stream, 60).took, 60s);
}

TEST(ResponseReader, StreamErrorsAreHandedOnAndPartsDropped)
{
    ScriptedStream early({{1ms, Status::error}});
    EXPECT_EQ(reading(early).error->domain, "stream");
    ScriptedStream late({{1ms, Status::open, "abc"}, {1ms, Status::error}});
    const Outcome outcome = reading(late);
    EXPECT_FALSE(outcome.body);
    EXPECT_FALSE(outcome.header);
    EXPECT_EQ(outcome.error->code, 7);
    EXPECT_EQ(outcome.message(), "broken");
}

TEST(ResponseReader, OtherStatusesWhileOpeningAreUnexpected)
{
    for (const Status status :
         {Status::notOpen, Status::reading, Status::writing, Status::closed}) {
        ScriptedStream stream({{1ms, status}});
        const Outcome outcome = reading(stream);
        EXPECT_FALSE(outcome.body);
        EXPECT_EQ(outcome.error->code, 250);
        EXPECT_EQ(outcome.message(), "Unexpected stream status");
    }
}

TEST(ResponseReader, AMissingResponseHeaderLosesNoBody)
{
    ScriptedStream stream({{1ms, Status::open, "abc"}, {1ms, Status::atEnd}});
    stream.header.reset();
    const Outcome outcome = reading(stream);
    EXPECT_EQ(outcome.body->size(), 3U);
    EXPECT_FALSE(outcome.header);
}

TEST(ResponseReader, NoTimeAtAllFailsAtOnce)
{
    ScriptedStream stream({{1ms, Status::open}});
    EXPECT_EQ(reading(stream, -1).message(), "Request timeout");
    EXPECT_EQ(stream.now, Moment{});
}

} // namespace
} // namespace stowline
