#include "stowline/platform/http/ReadStream.h"

#include "stowline/platform/text/Url.h"

#include <algorithm>

namespace stowline::platform {

namespace {

class HttpReadStream final : public ReadStream {
public:
    explicit HttpReadStream(HttpRequest request) : request_(std::move(request)) {}

    void open() override { exchange_.emplace(std::move(request_), HttpLimits{}); }

    Status status() override
    {
        if (!exchange_)
            return Status::notOpen;
        settle();
        if (outcome_ && !outcome_->response)
            return Status::error;
        if (outcome_ && !hasBytesAvailable())
            return Status::atEnd;
        return outcome_ || exchange_->isConnected() ? Status::open : Status::opening;
    }

    bool await(std::chrono::milliseconds atMost) override
    {
        return exchange_->waitForEvent(atMost);
    }

    bool hasBytesAvailable() override
    {
        settle();
        if (taken_ == body_.size()) {
            body_ = outcome_ ? std::exchange(outcome_->body, {}) : exchange_->takeBody();
            taken_ = 0;
        }
        return taken_ < body_.size();
    }

    std::ptrdiff_t read(std::span<char> room) override
    {
        const std::size_t count =
            hasBytesAvailable() ? std::min(room.size(), body_.size() - taken_) : 0;
        std::copy_n(body_.data() + taken_, count, room.data());
        taken_ += count;
        return static_cast<std::ptrdiff_t>(count);
    }

    std::optional<HttpResponseMessage> responseHeader() override
    {
        settle();
        if (!outcome_ || !outcome_->response)
            return std::nullopt;
        return HttpResponseMessage::fromBytes(*outcome_->response);
    }

    Error error() override
    {
        settle();
        return makeError(std::string(kHttpErrorDomain),
                         outcome_ ? static_cast<int>(outcome_->kind) : 0,
                         outcome_ ? outcome_->failure : "",
                         outcome_ ? outcome_->reason : FailureKind::unspecified);
    }

private:
    void settle()
    {
        if (!outcome_ && exchange_->hasEnded())
            outcome_ = exchange_->takeOutcome();
    }

    HttpRequest request_;
    std::optional<HttpExchange> exchange_;
    std::optional<HttpOutcome> outcome_;
    std::string body_;
    std::size_t taken_ = 0;
};

} // namespace

std::unique_ptr<ReadStream> makeHttpReadStream(HttpRequest request)
{
    if (!originOf(request.url))
        return nullptr;
    return std::make_unique<HttpReadStream>(std::move(request));
}

} // namespace stowline::platform
