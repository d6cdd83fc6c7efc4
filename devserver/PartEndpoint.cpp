#include "devserver/PartEndpoint.h"

#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/service/PartHeaders.h"

#include <fmt/format.h>

namespace stowline::devserver {

namespace {

struct Named {
    UploadPlace place;
    std::string fileName;
};

std::optional<Named> namedIn(const RequestHeaders& header)
{
    const auto user = platform::strictlyDecodedBase64(header(partHeader::userName));
    const auto path = platform::strictlyDecodedBase64(header(partHeader::serverDirPath));
    const auto file = platform::strictlyDecodedBase64(header(partHeader::fileName));
    const std::string guid = guidIn(header(partHeader::guid));
    if (!user || !path || !file || guid.empty())
        return std::nullopt;
    return Named{{*user, *path, guid}, *file};
}

PartAnswer refusal(const char* reason)
{
    return {{partHeader::status, "false"}, {partHeader::reason, reason}};
}

const char* reasonOf(PartRefusal refused)
{
    switch (refused) {
    case PartRefusal::noSuchPath:
        return "the user was given no such path";
    case PartRefusal::gap:
        return "a part before this one is missing";
    case PartRefusal::checksumMismatch:
        return "the checksum is not that of the part";
    }
    return "";
}

PartAnswer answerWith(const HeldUpload& held)
{
    PartAnswer answer{{partHeader::status, "true"},
                      {partHeader::receivedBytes, std::to_string(held.receivedBytes)},
                      {partHeader::nextPart, std::to_string(held.parts + 1)},
                      {partHeader::serverPath, held.serverFile},
                      {partHeader::registered, held.isRegistered ? "true" : "false"}};
    if (held.isRegistered) {
        answer.emplace(partHeader::versionId, std::to_string(held.versionId));
        answer.emplace(partHeader::listId, held.listId);
    }
    return answer;
}

} // namespace

std::string guidIn(const std::string& identifier)
{
    return identifier.substr(0, identifier.find(';'));
}

std::optional<std::uint64_t> numberIn(const std::string& identifier, const char* key, int base)
{
    const std::string start = fmt::format(";{}=", key);
    const auto at = identifier.find(start);
    if (at == std::string::npos)
        return std::nullopt;
    const auto digits = at + start.size();
    return platform::wholeNumber<std::uint64_t>(
        identifier.substr(digits, identifier.find(';', digits) - digits), base);
}

PartAnswer answerPartInfo(Storage& storage, const RequestHeaders& header)
{
    const auto named = namedIn(header);
    if (!named)
        return refusal("a header is missing or not Base64");
    try {
        const auto held = storage.held(named->place);
        return held ? answerWith(*held) : refusal(reasonOf(PartRefusal::noSuchPath));
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("What is held of an upload cannot be looked at: %@", fault.what());
        return refusal("what is held cannot be looked at");
    }
}

PartAnswer answerPart(Storage& storage, const RequestHeaders& header, std::string_view body)
{
    const auto named = namedIn(header);
    const auto most = platform::wholeNumber<std::uint64_t>(header(partHeader::portionSize));
    if (!named || !most)
        return refusal("a header is missing or malformed");
    if (body.size() > *most)
        return refusal("the part is larger than announced");
    const std::string identifier = header(partHeader::guid);
    const auto checksum = numberIn(identifier, "crc32", 16);
    const UploadedPart part{
        .fileName = named->fileName,
        .bytes = body,
        .offset = numberIn(identifier, "offset", 10),
        .checksum = checksum ? std::optional(static_cast<std::uint32_t>(*checksum)) : std::nullopt};
    try {
        const auto held = storage.addPart(named->place, part);
        return held ? answerWith(*held) : refusal(reasonOf(held.error()));
    } catch (const std::exception& fault) {
        STOWLINE_LOG_ERROR("A part cannot be stored: %@", fault.what());
        return refusal("the part cannot be stored");
    }
}

} // namespace stowline::devserver
