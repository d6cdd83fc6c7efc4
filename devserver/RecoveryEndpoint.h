// The plain request that hands content out, part by part, to who has a ticket.
#pragma once

#include "devserver/PartEndpoint.h"
#include "devserver/Tickets.h"

namespace stowline::devserver {

/// The headers of an answer, and its body.
struct DownloadAnswer {
    PartAnswer headers;
    std::string body;
};

/// Most bytes of one part; who asks for more gets "LengthTooLarge".
inline constexpr std::uint64_t kLongestDownload = std::uint64_t{60} << 20;

/// "DownloadFilePart". X-UserName is in Base64; X-Ticket, X-VersionID, X-Offset and X-Length say
/// what is wanted. X-Checksum of the answer is the CRC-32 of the body, X-VersionSize and X-Digest
/// (SHA-256) are of the whole content. A refusal says why in X-Reason, in one word. Any thread.
[[nodiscard]] DownloadAnswer answerDownload(Storage& storage, Tickets& tickets,
                                            const RequestHeaders& header);

/// Whether a request carries a ticket of the user that it names.
[[nodiscard]] bool hasTicket(Tickets& tickets, const RequestHeaders& header);

} // namespace stowline::devserver
