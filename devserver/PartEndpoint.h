// The two plain requests of an upload: what is held, and one part more. Everything travels in
// headers, but for the part's bytes.
#pragma once

#include "devserver/Storage.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace stowline::devserver {

/// The value of a request header; empty when it is missing.
using RequestHeaders = std::function<std::string(const char* name)>;

/// An answer without a body: "Status" and what goes with it.
using PartAnswer = std::map<std::string, std::string>;

/// "GetServerPartInfo". Headers X-FileName, X-UserName and X-ServerDirPath are in Base64.
/// X-ReceivedBytes and X-NextPart (from 1) of the answer tell where to go on, X-ServerPath where
/// the file lies, X-Registered whether it is a version already; X-VersionID and X-ListID then name
/// it. Any thread.
[[nodiscard]] PartAnswer answerPartInfo(Storage& storage, const RequestHeaders& header);

/// "UploadFilePart". X-Guid may go on with ";offset=N" and ";crc32=XXXXXXXX" about the part, which
/// makes repeating it harmless. X-PortionSize bounds the part. A refusal says why in X-Reason.
[[nodiscard]] PartAnswer answerPart(Storage& storage, const RequestHeaders& header,
                                    std::string_view body);

/// The name before the first ";" of an identifier, and the number after ";<key>=".
[[nodiscard]] std::string guidIn(const std::string& identifier);
[[nodiscard]] std::optional<std::uint64_t> numberIn(const std::string& identifier, const char* key,
                                                    int base);

} // namespace stowline::devserver
