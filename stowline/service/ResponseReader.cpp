#include "stowline/service/ResponseReader.h"

#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/network/SystemProxy.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/Format.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/General.h"

#include <array>

namespace stowline {

namespace {

using platform::HttpResponseMessage;
using platform::ReadStream;
using std::chrono::milliseconds;

constexpr std::size_t kPieceBytes = 65536;
constexpr double kLongestTimeoutSeconds = 1e9;

Error failure(std::string_view message, FailureKind kind)
{
    return platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode,
                               std::string(message), kind);
}

/// A time-out, and what is left of it.
class Patience {
public:
    Patience(double seconds, const MonotonicClock& now)
        : now_(now), start_(now()),
          length_(seconds > 0 ? std::min(seconds, kLongestTimeoutSeconds) : 0)
    {
    }
    void restart() { start_ = now_(); }
    [[nodiscard]] milliseconds left() const
    {
        const auto left = std::chrono::ceil<milliseconds>(length_ - (now_() - start_));
        return std::clamp(left, milliseconds(0), milliseconds(std::chrono::hours(24)));
    }

private:
    const MonotonicClock& now_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::duration<double> length_;
};

/// Waits until the stream is open. @return what went wrong
std::optional<Error> awaitOpening(ReadStream& stream, const Patience& patience)
{
    for (;;) {
        switch (stream.status()) {
        case ReadStream::Status::error:
            return stream.error();
        case ReadStream::Status::open:
        case ReadStream::Status::atEnd: // a short answer may be complete at the first look
            return std::nullopt;
        case ReadStream::Status::opening:
            break;
        default:
            return failure(kUnexpectedStatusMessage, FailureKind::connection);
        }
        const milliseconds left = patience.left();
        if (left.count() == 0)
            return failure(kTimeoutMessage, FailureKind::timeOut);
        stream.await(left);
    }
}

/// Reads to the end of the body. Where the stream opens once more on the way, because it was sent
/// elsewhere, that opening is bound as a whole too. @return what went wrong
std::optional<Error> readBody(ReadStream& stream, Patience& patience, Data& body)
{
    std::array<char, kPieceBytes> piece; // NOLINT: filled by read
    bool wasOpening = false;
    for (;;) {
        const auto status = stream.status();
        if (status == ReadStream::Status::atEnd)
            return std::nullopt;
        if (status == ReadStream::Status::error)
            return stream.error();
        if (stream.hasBytesAvailable()) {
            const std::ptrdiff_t count = stream.read(piece);
            if (count <= 0)
                return std::nullopt;
            body.insert(body.end(), piece.data(), piece.data() + count);
            patience.restart();
            continue;
        }
        const milliseconds left = patience.left();
        if (left.count() == 0)
            return failure(kTimeoutMessage, FailureKind::timeOut);
        const bool moved = stream.await(left);
        const bool isOpening = stream.status() == ReadStream::Status::opening;
        if (moved && !(wasOpening && isOpening))
            patience.restart();
        wasOpening = isOpening;
    }
}

} // namespace

std::optional<Data> readResponse(ReadStream& stream, double timeoutSeconds,
                                 std::optional<HttpResponseMessage>* responseHeader,
                                 ErrorSlot error, const MonotonicClock& now)
{
    if (responseHeader)
        responseHeader->reset();
    Patience patience(timeoutSeconds, now);
    stream.open();
    auto wrong = awaitOpening(stream, patience);
    Data body;
    if (!wrong) {
        patience.restart();
        wrong = readBody(stream, patience, body);
    }
    if (error)
        *error = wrong;
    if (wrong)
        return std::nullopt;
    if (responseHeader)
        *responseHeader = stream.responseHeader();
    return body;
}

std::optional<Data> readResponseForHTTPMessage(platform::HttpRequest request, double timeoutSeconds,
                                               std::optional<HttpResponseMessage>* responseHeader,
                                               ErrorSlot error)
{
    setHeader(request.headers, "User-Agent", General::userAgent());
    request.proxy = platform::systemProxyFor(request.url);
    if (responseHeader)
        responseHeader->reset();
    std::optional<Error> wrong;
    std::optional<Data> body;
    if (const auto stream = platform::makeHttpReadStream(std::move(request)))
        body = readResponse(*stream, timeoutSeconds, responseHeader, &wrong);
    else
        wrong = failure(kNoStreamMessage, FailureKind::invalidSettings);
    if (wrong)
        platform::consoleLog(platform::formatText("%@", wrong->localizedDescription()));
    if (error)
        *error = wrong;
    return body;
}

void setHeader(std::vector<platform::HttpHeader>& headers, const std::string& name,
               const std::string& value)
{
    if (platform::HttpHeader* known = platform::findHeader(headers, name))
        *known = {name, value};
    else
        headers.emplace_back(name, value);
}

} // namespace stowline
