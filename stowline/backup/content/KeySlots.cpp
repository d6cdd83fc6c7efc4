#include "stowline/backup/content/KeySlots.h"

#include "stowline/backup/content/KeySlotLines.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <set>

namespace stowline::backup {

namespace {

using Kind = KeyFault::Kind;

constexpr std::string_view kSlotPurpose = "stowline: slot of a master key";
constexpr std::string_view kListPurpose = "stowline: list of slots";
constexpr std::size_t kSlotIdentifierSize = 8;
constexpr std::size_t kSealSize = 32;
constexpr std::size_t kLeastPassphraseCharacters = 12;
constexpr std::size_t kLeastDifferentBytes = 5;

/// Ties a box to its slot and key: one that was moved into another slot does not open.
std::string associatedWith(const KeySlot& slot, std::string_view keyName)
{
    std::string bytes(kSlotPurpose);
    for (const std::string_view part :
         {std::string_view(slot.identifier), wordOf(slot.kind), keyName})
        (bytes += '\0') += part;
    return bytes;
}

platform::SecretBytes wrappingKey(const KeySlot& slot, const platform::SecretBytes& secret)
{
    return platform::passphraseKey(secret.view(), slot.salt, slot.cost);
}

std::string sealOver(std::string_view lines, const MasterKey& key)
{
    const auto listKey = platform::derivedKey(key.bytes(), kListPurpose);
    return platform::keyedBlake2b(listKey, lines, kSealSize);
}

[[noreturn]] void throwChanged()
{
    throw KeyFault(Kind::damaged, "The list of key slots is not as whoever has the key wrote it.");
}

std::string_view namedIn(SecretKind kind)
{
    switch (kind) {
    case SecretKind::account:
        return "the account's key";
    case SecretKind::passphrase:
        return "a passphrase";
    case SecretKind::keyFile:
        return "a key file";
    }
    return "";
}

} // namespace

KeySlots KeySlots::parsed(std::string_view text)
{
    if (text.size() > kLongestSlotList || !text.ends_with('\n'))
        throw KeyFault(Kind::damaged, "The list of key slots is damaged: its end is missing.");
    KeySlots list;
    const auto afterHead = text.find('\n') + 1;
    const SlotListHead head = slotListHeadOf(text.substr(0, afterHead));
    list.generation_ = head.generation;
    list.keyName_ = head.keyName;
    const std::size_t last = text.substr(0, text.size() - 1).rfind('\n') + 1;
    if (last < afterHead)
        throw KeyFault(Kind::damaged, "The list of key slots is damaged: its end is missing.");
    std::set<std::string> identifiers;
    for (std::size_t at = afterHead; at < last;) {
        const std::size_t next = text.find('\n', at) + 1;
        list.slots_.push_back(keySlotOf(text.substr(at, next - at)));
        identifiers.insert(list.slots_.back().identifier);
        at = next;
    }
    const SlotListEnd end = slotListEndOf(text.substr(last));
    if (end.slots != list.slots_.size() || identifiers.size() != list.slots_.size())
        throw KeyFault(Kind::damaged, "The list of key slots is damaged: slots are missing.");
    list.parsedLines_ = text.substr(0, last);
    list.seal_ = end.seal;
    return list;
}

std::string KeySlots::lines() const
{
    std::string lines = lineOf(SlotListHead{.generation = generation_, .keyName = keyName_});
    for (const KeySlot& slot : slots_)
        lines += lineOf(slot);
    return lines;
}

/// Slots of two keys in one list would open, each to another content. And what somebody without the
/// key changed in a list that was read would be genuine once it is written anew.
void KeySlots::requireOwn(const MasterKey& key) const
{
    if (key.name() != keyName_)
        throw KeyFault(Kind::notPossible, "The slots are of another key.");
    if (!seal_.empty())
        check(key);
}

std::string KeySlots::text(const MasterKey& key)
{
    requireOwn(key);
    ++generation_;
    parsedLines_ = lines();
    seal_ = sealOver(parsedLines_, key);
    return parsedLines_ + lineOf(SlotListEnd{.slots = slots_.size(), .seal = seal_});
}

std::string KeySlots::add(const MasterKey& key, SecretKind kind,
                          const platform::SecretBytes& secret, const std::string& label,
                          const platform::PassphraseCost& cost)
{
    requireOwn(key);
    if (slots_.size() == kMostKeySlots)
        throw KeyFault(Kind::notPossible, "The key has as many slots as it can have.");
    if (secret.size() == 0)
        throw KeyFault(Kind::notPossible, "A slot cannot open with an empty secret.");
    if (label.size() > kLongestSlotLabel || !platform::isValidUtf8(label))
        throw KeyFault(Kind::notPossible, "The slot's label is too long, or no text.");
    const std::string random = platform::randomText(kSlotIdentifierSize);
    KeySlot slot{.identifier = platform::hexadecimalText(Data(random.begin(), random.end())),
                 .kind = kind,
                 .label = label,
                 .cost = cost,
                 .salt = platform::randomText(platform::kPassphraseSaltSize),
                 .box = {}};
    platform::appendSealedBox(slot.box, key.bytes().view(), associatedWith(slot, keyName_),
                              wrappingKey(slot, secret));
    slots_.push_back(std::move(slot));
    return slots_.back().identifier;
}

void KeySlots::remove(const MasterKey& key, std::string_view identifier)
{
    requireOwn(key);
    const auto found = std::ranges::find(slots_, identifier, &KeySlot::identifier);
    if (found == slots_.end())
        throw KeyFault(Kind::noSlot, "The key has no slot \"" + std::string(identifier) + "\".");
    if (slots_.size() == 1)
        throw KeyFault(Kind::notPossible, "It is the last slot: without it nobody could ever read "
                                          "what is sealed. Add another one first.");
    slots_.erase(found);
}

MasterKey KeySlots::open(SecretKind kind, const platform::SecretBytes& secret) const
{
    bool isThere = false;
    for (const KeySlot& slot : slots_) {
        if (slot.kind != kind)
            continue;
        isThere = true;
        platform::SecretBytes bytes(platform::kSealingKeySize);
        if (!platform::openSealedSecret(bytes, slot.box, associatedWith(slot, keyName_),
                                        wrappingKey(slot, secret)))
            continue;
        MasterKey key(std::move(bytes));
        check(key);
        return key;
    }
    if (!isThere)
        throw KeyFault(Kind::noSlot,
                       "No slot of the key opens with " + std::string(namedIn(kind)) + ".");
    throw KeyFault(Kind::wrongSecret, "What was given as " + std::string(namedIn(kind)) +
                                          " opens no slot of the key.");
}

void KeySlots::check(const MasterKey& key) const
{
    if (key.name() != keyName_ || sealOver(parsedLines_, key) != seal_)
        throwChanged();
}

std::optional<std::string> weaknessOf(std::string_view passphrase)
{
    const auto startsCharacter = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
    };
    if (static_cast<std::size_t>(std::ranges::count_if(passphrase, startsCharacter)) <
        kLeastPassphraseCharacters)
        return "The passphrase is too short: it needs 12 characters, and several words are better.";
    if (std::set<char>(passphrase.begin(), passphrase.end()).size() < kLeastDifferentBytes)
        return "The passphrase repeats the same few characters.";
    return std::nullopt;
}

} // namespace stowline::backup
