// A response that is read while it arrives.
#pragma once

#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/values/Error.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>

namespace stowline::platform {

/// The seam between the reading of a response, with its time-outs, and the network. For one thread.
class ReadStream {
public:
    enum class Status { notOpen, opening, open, reading, writing, atEnd, closed, error };

    ReadStream() = default;
    ReadStream(const ReadStream&) = delete;
    ReadStream& operator=(const ReadStream&) = delete;
    virtual ~ReadStream() = default; ///< closes it

    /// Begins to open it; status() tells how that goes. An open one can be opening again while no
    /// byte of the body has come: a redirect is followed, or the request sent once more.
    virtual void open() = 0;
    [[nodiscard]] virtual Status status() = 0;

    /// Waits until something moves: bytes are sent or received, or the status changes.
    /// @return false when the time was over first
    virtual bool await(std::chrono::milliseconds atMost) = 0;

    [[nodiscard]] virtual bool hasBytesAvailable() = 0;

    /// Takes up to as many bytes of the body as fit. @return how many; 0 or less at the end
    [[nodiscard]] virtual std::ptrdiff_t read(std::span<char> room) = 0;

    /// Status line and headers; absent when the stream has none. At the end.
    [[nodiscard]] virtual std::optional<HttpResponseMessage> responseHeader() = 0;

    /// What happened, at the status `error`.
    [[nodiscard]] virtual Error error() = 0;
};

/// Domain of the errors of an HTTP stream; their codes are those of HttpFailure, their kinds the
/// exchange's reasons.
inline constexpr std::string_view kHttpErrorDomain = "com.Stowline.HTTP";

/// A stream over one HTTP exchange; see HttpExchange for redirects, TLS and proxies.
/// @return null when the request's URL is not an http or https address.
[[nodiscard]] std::unique_ptr<ReadStream> makeHttpReadStream(HttpRequest request);

} // namespace stowline::platform
