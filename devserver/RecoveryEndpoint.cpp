#include "devserver/RecoveryEndpoint.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/text/Numbers.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

DownloadAnswer refusal(const char* reason)
{
    return {{{"Status", "false"}, {"X-Reason", reason}}, {}};
}

/// A header that is a number and nothing else.
std::optional<std::uint64_t> numberOf(const RequestHeaders& header, const char* name)
{
    return platform::wholeNumber<std::uint64_t>(header(name));
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
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("A part of a stored version cannot be read: %@", fault.what());
        return refusal("ContentNotReadable"); // which says nothing of what it holds
    }
}

} // namespace stowline::devserver
