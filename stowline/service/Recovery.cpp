// Reading stored content part by part, with a ticket.
#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FilledUrl.h"
#include "stowline/service/Operation.h"
#include "stowline/service/PartHeaders.h"
#include "stowline/service/Placeholders.h"
#include "stowline/service/SettingsTables.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/Base64.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/StringMethods.h"

#include <algorithm>
#include <array>

namespace stowline {

namespace {

constexpr std::string_view kGetTicket = "GetRestoreTicket";
constexpr std::string_view kDownloadPart = "DownloadFilePart";

struct NamedOutcome {
    std::string_view reason;
    FilePartOutcome outcome;
};
/// What a "no" means, by the code in "X-Reason".
constexpr std::array<NamedOutcome, 5> kRefusals{{
    {partReason::ticketRefused, FilePartOutcome::ticketRefused},
    {partReason::noSuchVersion, FilePartOutcome::noSuchVersion},
    {partReason::contentMissing, FilePartOutcome::contentMissing},
    {partReason::contentDamaged, FilePartOutcome::contentDamaged},
    {partReason::outOfRange, FilePartOutcome::outOfRange},
}};

FilePartOutcome outcomeOf(std::string_view reason)
{
    const auto known = std::ranges::find(kRefusals, reason, &NamedOutcome::reason);
    return known == kRefusals.end() ? FilePartOutcome::refused : known->outcome;
}

/// A header's value that is a number and nothing else.
template <class Number>
std::optional<Number> numberIn(const Dictionary& headers, std::string_view name, int base)
{
    const std::string* digits = findString(headers, name);
    return digits ? platform::wholeNumber<Number>(*digits, base) : std::nullopt;
}

/// Reads what came with a part that the service says it hands out.
FilePart partFrom(const Dictionary& headers, Data bytes, std::uint64_t offset, std::uint64_t length)
{
    const auto checksum = numberIn<std::uint32_t>(headers, partHeader::checksum, 16);
    const auto size = numberIn<std::uint64_t>(headers, partHeader::versionSize, 10);
    const bool fits = checksum && size && offset <= *size &&
                      bytes.size() == std::min(length, *size - offset) &&
                      Crc32::TW_crc32(bytes) == *checksum;
    if (!fits)
        return {.outcome = FilePartOutcome::garbled};
    const std::string* digest = findString(headers, partHeader::digest);
    return {.outcome = FilePartOutcome::read,
            .bytes = std::move(bytes),
            .checksum = *checksum,
            .versionSize = *size,
            .versionDigest = digest ? *digest : ""};
}

FilePart partFrom(const std::optional<Dictionary>& headers, Data bytes, std::uint64_t offset,
                  std::uint64_t length, const Operation& operation)
{
    const std::string* status = headers ? findString(*headers, partHeader::status) : nullptr;
    if (!status) {
        operation.fail(FailureKind::unreadableAnswer,
                       "The answer of the backup server is not part of a file.");
        return {};
    }
    if (StringMethods::TW_parseBool(*status))
        return partFrom(*headers, std::move(bytes), offset, length);
    const std::string* reason = findString(*headers, partHeader::reason);
    return {.outcome = outcomeOf(reason ? *reason : ""), .reason = reason ? *reason : ""};
}

} // namespace

bool WebServiceBroker::isRestoringConfigured()
{
    return orEmpty([] {
        return settingsTables::webMethod(kGetTicket) && settingsTables::webRequest(kDownloadPart);
    });
}

std::optional<RestoreTicket>
WebServiceBroker::restoreTicketForUsername(std::string_view username, std::string_view password,
                                           std::string_view backupServer, ErrorSlot error)
{
    return runOperation(
        "restoreTicketForUsername:password:backupServer:error:", error, std::nullopt,
        [&](const Operation& operation) -> std::optional<RestoreTicket> {
            if (!isRestoringConfigured()) {
                operation.fail(FailureKind::invalidSettings, kRestoringNotConfiguredMessage);
                return std::nullopt;
            }
            const SubstitutionMap params{{placeholder::username, username},
                                         {placeholder::password, password}};
            const auto result =
                invokeSOAPMethodWithName(kGetTicket, {}, params, error, "", {backupServer});
            const Dictionary* answer = result ? result->dictionary() : nullptr;
            const std::string* text = answer ? findString(*answer, "Ticket") : nullptr;
            const auto seconds = answer ? numberIn<std::int64_t>(*answer, "SecondsToLive", 10)
                                        : std::optional<std::int64_t>();
            if (!result)
                return std::nullopt;
            if (!text || !platform::isToken(*text) || seconds.value_or(0) <= 0) {
                operation.fail(FailureKind::unreadableAnswer,
                               "The backup server gave no ticket for restoring.");
                return std::nullopt;
            }
            return RestoreTicket{*text, *seconds};
        });
}

FilePart WebServiceBroker::filePartForUsername(std::string_view username, std::string_view ticket,
                                               std::string_view versionId, std::uint64_t offset,
                                               std::uint64_t length, std::string_view backupServer,
                                               ErrorSlot error)
{
    return runOperation(
        "filePartForUsername:ticket:versionId:offset:length:backupServer:error:", error, {},
        [&](const Operation& operation) -> FilePart {
            operation.clearError();
            const auto entry = settingsTables::webRequest(kDownloadPart);
            if (!entry) {
                operation.fail(FailureKind::invalidSettings, kRestoringNotConfiguredMessage);
                return {.outcome = FilePartOutcome::notConfigured};
            }
            const SubstitutionMap values{
                {placeholder::base64Username, Base64::base64EncodingWithLineLength(username, 0)},
                {placeholder::ticket, ticket},
                {placeholder::versionId, versionId},
                {placeholder::offset, offset},
                {placeholder::length, length}};
            const std::array<platform::FormatArgument, 1> server{backupServer};
            std::optional<Dictionary> headers;
            auto body = sendWebRequestWithURL(filledUrl(*entry, server), kDownloadPart, values,
                                              std::nullopt, &headers, error);
            if (!body)
                return {};
            FilePart part = partFrom(headers, std::move(*body), offset, length, operation);
            if (part.outcome != FilePartOutcome::read)
                OPERATION_LOG_ERROR(
                    operation, "Version %@ cannot be read at %qu: %@", versionId, offset,
                    part.reason.empty() ? "the answer is malformed" : messageFromCode(part.reason));
            return part;
        });
}

} // namespace stowline
