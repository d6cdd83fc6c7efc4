#include "devserver/RecoveryEndpoint.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/service/PartHeaders.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

DownloadAnswer refusal(const char* reason)
{
    return {{{partHeader::status, "false"}, {partHeader::reason, reason}}, {}};
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
        return partReason::contentMissing;
    case ContentPart::Outcome::damaged:
        return partReason::contentDamaged;
    case ContentPart::Outcome::outOfRange:
        return partReason::outOfRange;
    default:
        return partReason::noSuchVersion;
    }
}

} // namespace

bool hasTicket(Tickets& tickets, const RequestHeaders& header)
{
    const auto user = platform::strictlyDecodedBase64(header(partHeader::userName));
    const std::string ticket = header(partHeader::ticket);
    return user && !ticket.empty() && tickets.isGood(ticket, *user);
}

DownloadAnswer answerDownload(Storage& storage, Tickets& tickets, const RequestHeaders& header)
{
    if (!hasTicket(tickets, header))
        return refusal(partReason::ticketRefused);
    const auto version = numberOf(header, partHeader::versionId);
    const auto offset = numberOf(header, partHeader::offset);
    const auto length = numberOf(header, partHeader::length);
    if (!offset || !length)
        return refusal("InvalidRequest");
    if (*length > kLongestDownload)
        return refusal("LengthTooLarge");
    if (!version || *version > static_cast<std::uint64_t>(INT64_MAX))
        return refusal(partReason::noSuchVersion);
    const std::string user =
        platform::strictlyDecodedBase64(header(partHeader::userName)).value_or("");
    try {
        ContentPart part =
            storage.readPart(user, static_cast<std::int64_t>(*version), *offset, *length);
        if (part.outcome != ContentPart::Outcome::read)
            return refusal(reasonFor(part.outcome));
        return {{{partHeader::status, "true"},
                 {partHeader::checksum, fmt::format("{:08x}", part.checksum)},
                 {partHeader::versionSize, std::to_string(part.version.storedSize)},
                 {partHeader::digest, part.version.digest}},
                std::move(part.bytes)};
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("A part of a stored version cannot be read: %@", fault.what());
        return refusal("ContentNotReadable"); // which says nothing of what it holds
    }
}

} // namespace stowline::devserver
