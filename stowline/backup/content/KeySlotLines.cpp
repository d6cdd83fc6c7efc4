#include "stowline/backup/content/KeySlotLines.h"

#include "stowline/platform/text/Data.h"
#include "stowline/platform/text/Text.h"

#include <nlohmann/json.hpp>

#include <array>

namespace stowline::backup {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kListMark = "stowline";
constexpr std::uint64_t kListFormat = 1;
constexpr std::size_t kSlotIdentifierDigits = 16;
constexpr std::size_t kSealSize = 32;
constexpr std::uint64_t kMostGenerations = std::uint64_t(1) << 53;

constexpr std::array kKindWords{std::pair{SecretKind::account, "account"},
                                std::pair{SecretKind::passphrase, "passphrase"},
                                std::pair{SecretKind::keyFile, "key-file"}};

[[noreturn]] void refuse(const std::string& what)
{
    throw KeyFault(KeyFault::Kind::damaged, "The list of key slots is damaged: " + what + ".");
}

std::string digitsOf(std::string_view bytes)
{
    return platform::hexadecimalText(Data(bytes.begin(), bytes.end()));
}

std::string lineOf(const Json& object)
{
    return object.dump() + "\n";
}

Json parsedLine(std::string_view line)
{
    Json object = Json::parse(line, nullptr, false);
    if (!object.is_object())
        refuse("a line is not an object");
    return object;
}

std::string textIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end() || !found->is_string())
        refuse(std::string(name) + " is missing");
    return found->get<std::string>();
}

std::uint64_t numberIn(const Json& object, const char* name, std::uint64_t least,
                       std::uint64_t most)
{
    const auto found = object.find(name);
    if (found == object.end() || !found->is_number_unsigned() ||
        found->get<std::uint64_t>() < least || found->get<std::uint64_t>() > most)
        refuse(std::string(name) + " is missing or out of range");
    return found->get<std::uint64_t>();
}

std::string digitsIn(const Json& object, const char* name, std::size_t count)
{
    std::string digits = textIn(object, name);
    if (digits.size() != count || digits.find_first_not_of("0123456789abcdef") != std::string::npos)
        refuse(std::string(name) + " has an unknown form");
    return digits;
}

int valueOfDigit(char digit)
{
    return digit <= '9' ? digit - '0' : digit - 'a' + 10;
}

std::string bytesIn(const Json& object, const char* name, std::size_t size)
{
    const std::string digits = digitsIn(object, name, 2 * size);
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(valueOfDigit(digits[i]) << 4 | valueOfDigit(digits[i + 1]));
    return bytes;
}

SecretKind kindIn(const Json& object)
{
    const std::string word = textIn(object, "kind");
    for (const auto& [kind, known] : kKindWords) {
        if (word == known)
            return kind;
    }
    throw KeyFault(KeyFault::Kind::tooNew,
                   "The list of key slots has a slot of a kind that this program does not know.");
}

} // namespace

std::string_view wordOf(SecretKind kind)
{
    for (const auto& [known, word] : kKindWords) {
        if (known == kind)
            return word;
    }
    return "";
}

std::string lineOf(const SlotListHead& head, std::string_view earlier)
{
    Json object = earlier.empty() ? Json::object() : parsedLine(earlier);
    object["keys"] = kListMark;
    object["format"] = kListFormat;
    object["generation"] = head.generation;
    object["key"] = digitsOf(head.keyName);
    return lineOf(object);
}

std::string lineOf(const KeySlot& slot)
{
    return lineOf(Json{{"slot", slot.identifier},
                       {"kind", wordOf(slot.kind)},
                       {"label", slot.label},
                       {"operations", slot.cost.operations},
                       {"memory_kib", slot.cost.memoryKib},
                       {"salt", digitsOf(slot.salt)},
                       {"box", digitsOf(slot.box)}});
}

std::string lineOf(const SlotListEnd& end)
{
    return lineOf(Json{{"end", {{"slots", end.slots}, {"seal", digitsOf(end.seal)}}}});
}

bool isSlotLabel(std::string_view label)
{
    return label.size() <= kLongestSlotLabel && platform::isValidUtf8(label) &&
           label.find_first_of("\t\n") == std::string_view::npos &&
           platform::withoutControls(label) == label;
}

SlotListHead slotListHeadOf(std::string_view line)
{
    const Json object = parsedLine(line);
    if (textIn(object, "keys") != kListMark)
        refuse("it is not such a list");
    if (numberIn(object, "format", 1, UINT64_MAX) > kListFormat)
        throw KeyFault(KeyFault::Kind::tooNew,
                       "The list of key slots was written by a newer version of this program.");
    return {.generation = numberIn(object, "generation", 1, kMostGenerations),
            .keyName = bytesIn(object, "key", kKeyNameSize)};
}

KeySlot keySlotOf(std::string_view line)
{
    const Json object = parsedLine(line);
    KeySlot slot;
    slot.identifier = digitsIn(object, "slot", kSlotIdentifierDigits);
    slot.kind = kindIn(object);
    slot.label = textIn(object, "label");
    if (!isSlotLabel(slot.label))
        refuse("a label is too long, or cannot be shown");
    slot.cost.operations = numberIn(object, "operations", kLeastPassphraseCost.operations,
                                    kMostPassphraseCost.operations);
    slot.cost.memoryKib = numberIn(object, "memory_kib", kLeastPassphraseCost.memoryKib,
                                   kMostPassphraseCost.memoryKib);
    slot.salt = bytesIn(object, "salt", platform::kPassphraseSaltSize);
    slot.box = bytesIn(object, "box", platform::kSealingKeySize + platform::kSealingOverhead);
    return slot;
}

SlotListEnd slotListEndOf(std::string_view line)
{
    const Json object = parsedLine(line);
    const auto end = object.find("end");
    if (end == object.end() || !end->is_object())
        refuse("its end is missing");
    return {.slots = static_cast<std::size_t>(numberIn(*end, "slots", 0, kMostKeySlots)),
            .seal = bytesIn(*end, "seal", kSealSize)};
}

} // namespace stowline::backup
