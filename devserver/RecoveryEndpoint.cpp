#include "devserver/RecoveryEndpoint.h"

#include "stowline/platform/desktop/Cryptography.h"

#include <fmt/format.h>

#include <charconv>

namespace stowline::devserver {

namespace {

DownloadAnswer refusal(const char* reason)
{
    return {{{"Status", "false"}, {"X-Reason", reason}}, {}};
}

/// A header that is a number and nothing else.
std::optional<std::uint64_t> numberOf(const RequestHeaders& header, const char* name)
{
    const std::string digits = header(name);
    std::uint64_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, number);
    return read.ec == std::errc() && read.ptr == end && !digits.empty() ? std::optional(number)
                                                                        : std::nullopt;
}

const char* reasonFor(ContentPart::Outcome outcome)
{
    switch (outcome) {
    case ContentPart::Outcome::missing:
        return "ContentMissing";
    case ContentPart::Outcome::damaged:
        return "ContentDamaged";
    case ContentPart::Outcome::outOfRange:
        return "OutOfRange";
    default:
        return "NoSuchVersion";
    }
}

} // namespace

bool hasTicket(Tickets& tickets, const RequestHeaders& header)
{
    const auto user = platform::strictlyDecodedBase64(header("X-UserName"));
    const std::string ticket = header("X-Ticket");
    return user && !ticket.empty() && tickets.isGood(ticket, *user);
}

DownloadAnswer answerDownload(Storage& storage, Tickets& tickets, const RequestHeaders& header)
{
    if (!hasTicket(tickets, header))
        return refusal("TicketRefused");
    const auto version = numberOf(header, "X-VersionID");
    const auto offset = numberOf(header, "X-Offset");
    const auto length = numberOf(header, "X-Length");
    if (!offset || !length)
        return refusal("InvalidRequest");
    if (*length > kLongestDownload)
        return refusal("LengthTooLarge");
    if (!version || *version > static_cast<std::uint64_t>(INT64_MAX))
        return refusal("NoSuchVersion");
    const std::string user = platform::strictlyDecodedBase64(header("X-UserName")).value_or("");
    try {
        ContentPart part =
            storage.readPart(user, static_cast<std::int64_t>(*version), *offset, *length);
        if (part.outcome != ContentPart::Outcome::read)
            return refusal(reasonFor(part.outcome));
        return {{{"Status", "true"},
                 {"X-Checksum", fmt::format("{:08x}", part.checksum)},
                 {"X-VersionSize", std::to_string(part.version.storedSize)},
                 {"X-Digest", part.version.digest}},
                std::move(part.bytes)};
    } catch (const std::exception&) {
        return refusal("ContentNotReadable"); // which says nothing of what it holds
    }
}

} // namespace stowline::devserver
