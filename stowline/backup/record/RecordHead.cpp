#include "stowline/backup/record/RecordHead.h"

#include "stowline/platform/text/Numbers.h"
#include "stowline/util/Base64.h"

#include <algorithm>

namespace stowline::backup {

namespace {

constexpr std::size_t kRunDigits = 8;
constexpr std::size_t kPartDigits = 2;

std::string padded(std::uint64_t number, std::size_t digits)
{
    std::string text = std::to_string(number);
    return std::string(digits - std::min(digits, text.size()), '0') + text;
}

/// Takes digits off the front of a text. @return absent when there are none such
std::optional<std::uint64_t> takeNumber(std::string_view& text, std::size_t digits)
{
    if (text.size() < digits)
        return std::nullopt;
    const auto number = platform::wholeNumber<std::uint64_t>(text.substr(0, digits));
    if (!number || *number == 0)
        return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

constexpr std::string_view kPacked = "=b64=";

std::string chainPart(const std::string& name)
{
    const bool isPlain = std::ranges::all_of(name, [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '_' || c == '-';
    });
    if (isPlain)
        return name;
    std::string text = Base64::base64EncodingWithLineLength(name, 0);
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return std::string(kPacked) + text;
}

std::optional<std::string> nameOfChainPart(std::string_view part)
{
    if (!part.starts_with(kPacked))
        return std::string(part);
    std::string text(part.substr(kPacked.size()));
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    const Data bytes = Base64::dataWithBase64EncodedString(text);
    std::string name(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return chainPart(name) == part ? std::optional(name) : std::nullopt;
}

} // namespace

std::string recordNameText(const RecordName& name)
{
    const std::string run = padded(name.run, kRunDigits);
    switch (name.state) {
    case RecordState::begun:
        return run + "-begun";
    case RecordState::unfinished:
        return run + "-unfinished-" + padded(name.part, kPartDigits);
    case RecordState::forgotten:
        return run + "-forgotten";
    case RecordState::finished:
        break;
    }
    return run + "-finished";
}

std::optional<RecordName> parseRecordName(std::string_view text)
{
    const auto run = takeNumber(text, kRunDigits);
    if (!run)
        return std::nullopt;
    if (text == "-begun")
        return RecordName{*run, RecordState::begun, 0};
    if (text == "-finished")
        return RecordName{*run, RecordState::finished, 0};
    if (text == "-forgotten")
        return RecordName{*run, RecordState::forgotten, 0};
    constexpr std::string_view unfinished = "-unfinished-";
    if (!text.starts_with(unfinished))
        return std::nullopt;
    text.remove_prefix(unfinished.size());
    const auto part = takeNumber(text, kPartDigits);
    if (!part || !text.empty())
        return std::nullopt;
    return RecordName{*run, RecordState::unfinished, static_cast<std::uint32_t>(*part)};
}

std::string chainName(const ChainIdentity& identity)
{
    return chainPart(identity.machine) + "." + chainPart(identity.user) + "." +
           chainPart(identity.profile);
}

std::optional<ChainIdentity> parseChainName(std::string_view name)
{
    const auto first = name.find('.');
    const auto second = first == std::string_view::npos ? first : name.find('.', first + 1);
    if (second == std::string_view::npos || name.find('.', second + 1) != std::string_view::npos)
        return std::nullopt;
    const auto machine = nameOfChainPart(name.substr(0, first));
    const auto user = nameOfChainPart(name.substr(first + 1, second - first - 1));
    const auto profile = nameOfChainPart(name.substr(second + 1));
    if (!machine || !user || !profile)
        return std::nullopt;
    return ChainIdentity{*machine, *user, *profile};
}

} // namespace stowline::backup
