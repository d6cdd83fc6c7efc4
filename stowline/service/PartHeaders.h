// The headers with which parts of files go up and come down, and the reasons of a "no". The default
// settings name them for this client; the development service answers with the same.
#pragma once

namespace stowline {

namespace partHeader {
// Of both directions.
/// The number of a request; its answer has it again, and after a blank how many bytes of a body
/// were read. The settings name it to the client.
inline constexpr char requestId[] = "X-RequestID";
inline constexpr char userName[] = "X-UserName"; ///< Base64
inline constexpr char status[] = "Status";       ///< "true" or "false"
inline constexpr char reason[] = "X-Reason";     ///< of a "false": a code of partReason, or words
inline constexpr char versionId[] = "X-VersionID";
// Of a part that goes up, and of the question how much is there.
inline constexpr char serverDirPath[] = "X-ServerDirPath"; ///< Base64
inline constexpr char fileName[] = "X-FileName";           ///< Base64
inline constexpr char guid[] = "X-Guid";               ///< identifier; offset and CRC-32 behind ";"
inline constexpr char portionSize[] = "X-PortionSize"; ///< bytes of a part, at most
inline constexpr char receivedBytes[] = "X-ReceivedBytes"; ///< of the file, up to now
inline constexpr char nextPart[] = "X-NextPart";           ///< from 1
inline constexpr char serverPath[] = "X-ServerPath";
inline constexpr char registered[] = "X-Registered"; ///< "true" or "false"
inline constexpr char listId[] = "X-ListID";
// Of a part that comes down.
inline constexpr char ticket[] = "X-Ticket";
inline constexpr char offset[] = "X-Offset";           ///< bytes from the beginning of the version
inline constexpr char length[] = "X-Length";           ///< bytes
inline constexpr char checksum[] = "X-Checksum";       ///< CRC-32 of the part, hexadecimal
inline constexpr char versionSize[] = "X-VersionSize"; ///< bytes of the whole version
inline constexpr char digest[] = "X-Digest";           ///< SHA-256 of the whole version
} // namespace partHeader

/// Why a part does not come down, where the client treats it in its own way.
namespace partReason {
inline constexpr char ticketRefused[] = "TicketRefused";
inline constexpr char noSuchVersion[] = "NoSuchVersion";
inline constexpr char contentMissing[] = "ContentMissing";
inline constexpr char contentDamaged[] = "ContentDamaged";
inline constexpr char outOfRange[] = "OutOfRange";
} // namespace partReason

} // namespace stowline
