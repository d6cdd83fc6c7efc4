#include "stowline/backup/content/KeySlots.h"

#include "stowline/backup/content/KeySlotCost.h"
#include "stowline/backup/content/KeySlotLines.h"
#include "stowline/platform/desktop/PassphraseText.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <array>
#include <set>

namespace stowline::backup {

namespace {

using Kind = KeyFault::Kind;

constexpr std::string_view kSlotPurpose = "stowline: slot of a master key";
constexpr std::string_view kListPurpose = "stowline: list of slots";
constexpr std::size_t kSlotIdentifierSize = 8;
constexpr std::size_t kSealSize = 32;
constexpr std::size_t kLeastPassphraseCharacters = 12;
constexpr std::size_t kLeastDifferentCharacters = 5;

/// Ties a box to its slot and key: one that was moved into another slot does not open.
std::string associatedWith(const KeySlot& slot, std::string_view keyName)
{
    std::string bytes(kSlotPurpose);
    for (const std::string_view part :
         {std::string_view(slot.identifier), wordOf(slot.kind), keyName})
        (bytes += '\0') += part;
    return bytes;
}

/// The bytes of a secret of which the keys of slots are made; absent: it cannot be one.
std::optional<platform::SecretBytes> digestible(SecretKind kind,
                                                const platform::SecretBytes& secret)
{
    if (kind == SecretKind::passphrase)
        return platform::composedPassphrase(secret.view());
    return platform::SecretBytes::copyOf(secret.view());
}

/// @param secret as digestible() gives it
platform::SecretBytes wrappingKey(const KeySlot& slot, const platform::SecretBytes& secret)
{
    return platform::passphraseKey(secret.view(), slot.salt, slot.cost);
}

/// Why a secret is not taken for a new slot; absent: it is.
std::optional<std::string> whyNotTaken(SecretKind kind, const platform::SecretBytes& secret)
{
    if (secret.size() == 0)
        return "A slot cannot open with an empty secret.";
    if (kind == SecretKind::passphrase)
        return weaknessOf(secret.view());
    if (kind == SecretKind::keyFile && secret.size() < kLeastKeyFileSize)
        return "The key file is too short: it needs 32 bytes, drawn at random.";
    return std::nullopt;
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

void requireAllowed(const platform::PassphraseCost& cost, const std::vector<KeySlot>& slots,
                    SecretKind kind)
{
    if (!isAllowed(cost))
        throw KeyFault(Kind::notPossible, "A slot cannot cost so much, or so little.");
    if (workOf(slots, kind) + workOf(cost) > kMostCostOfAKind)
        throw KeyFault(Kind::notPossible,
                       "The slots of that kind would take too long to try together.");
}

constexpr std::array kKinds{SecretKind::account, SecretKind::passphrase, SecretKind::keyFile};

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
    if (text.size() > kLongestSlotList)
        throw KeyFault(Kind::damaged,
                       "The list of key slots is damaged: it is longer than one can be.");
    if (!text.ends_with('\n'))
        throw KeyFault(Kind::damaged, "The list of key slots is damaged: its end is missing.");
    KeySlots list;
    const auto afterHead = text.find('\n') + 1;
    list.headLine_ = text.substr(0, afterHead);
    const SlotListHead head = slotListHeadOf(list.headLine_);
    list.generation_ = head.generation;
    list.keyName_ = head.keyName;
    const std::size_t last = text.substr(0, text.size() - 1).rfind('\n') + 1;
    if (last < afterHead)
        throw KeyFault(Kind::damaged, "The list of key slots is damaged: its end is missing.");
    std::set<std::string> identifiers;
    for (std::size_t at = afterHead; at < last;) {
        const std::size_t next = text.find('\n', at) + 1;
        list.slotLines_.emplace_back(text.substr(at, next - at));
        list.slots_.push_back(keySlotOf(list.slotLines_.back()));
        identifiers.insert(list.slots_.back().identifier);
        at = next;
    }
    const SlotListEnd end = slotListEndOf(text.substr(last));
    if (end.slots != list.slots_.size() || identifiers.size() != list.slots_.size())
        throw KeyFault(Kind::damaged, "The list of key slots is damaged: slots are missing.");
    for (const SecretKind kind : kKinds) {
        if (workOf(list.slots_, kind) > kMostCostOfAKind)
            throw KeyFault(Kind::damaged,
                           "The list of key slots is damaged: it takes too long to try them.");
    }
    list.parsedLines_ = text.substr(0, last);
    list.seal_ = end.seal;
    return list;
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
    if (slots_.empty())
        throw KeyFault(Kind::notPossible, "The key has no slot: nobody could ever open it again.");
    std::string text =
        lineOf(SlotListHead{.generation = generation_ + 1, .keyName = keyName_}, headLine_);
    for (const std::string& line : slotLines_)
        text += line;
    text += lineOf(SlotListEnd{.slots = slots_.size(), .seal = sealOver(text, key)});
    if (text.size() > kLongestSlotList)
        throw KeyFault(Kind::notPossible,
                       "The key's slots take more room than their list may have: take some out.");
    *this = parsed(text); // nothing is written that would not be read
    return text;
}

std::string KeySlots::add(const MasterKey& key, SecretKind kind,
                          const platform::SecretBytes& secret, const std::string& label,
                          const platform::PassphraseCost& cost)
{
    requireOwn(key);
    if (slots_.size() == kMostKeySlots)
        throw KeyFault(Kind::notPossible, "The key has as many slots as it can have.");
    if (const auto reason = whyNotTaken(kind, secret))
        throw KeyFault(Kind::notPossible, *reason);
    if (!isSlotLabel(label))
        throw KeyFault(Kind::notPossible,
                       "The slot's label is too long, or is not text that can be shown.");
    requireAllowed(cost, slots_, kind);
    const std::string random = platform::randomText(kSlotIdentifierSize);
    KeySlot slot{.identifier = platform::hexadecimalText(Data(random.begin(), random.end())),
                 .kind = kind,
                 .label = label,
                 .cost = cost,
                 .salt = platform::randomText(platform::kPassphraseSaltSize),
                 .box = {}};
    platform::appendSealedBox(slot.box, key.bytes().view(), associatedWith(slot, keyName_),
                              wrappingKey(slot, digestible(kind, secret).value()));
    slotLines_.push_back(lineOf(slot));
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
    slotLines_.erase(slotLines_.begin() + (found - slots_.begin()));
    slots_.erase(found);
}

bool KeySlots::isAsKnown(const KnownSlotList& known) const
{
    if (keyName_ != known.keyName)
        throw KeyFault(Kind::otherKey,
                       "The list of key slots is of another key than that which is known here.");
    if (generation_ < known.generation)
        throw KeyFault(Kind::older, "The list of key slots is older than one that was seen here.");
    if (generation_ > known.generation)
        return false;
    if (this->known().digest != known.digest)
        throw KeyFault(Kind::forked,
                       "The list of key slots was changed, or two machines wrote it at the same "
                       "time: it is another one than was seen here under the same number.");
    return true;
}

KnownSlotList KeySlots::known() const
{
    return {.keyName = keyName_,
            .generation = generation_,
            .digest = platform::Sha256::of(parsedLines_ + seal_)};
}

MasterKey KeySlots::open(SecretKind kind, const platform::SecretBytes& secret,
                         const std::optional<KnownSlotList>& known) const
{
    const bool isTheKnown = known && isAsKnown(*known);
    const std::string elseChanged = isTheKnown ? "." : ", or the list was changed.";
    const auto slots = slotsToTry(slots_, kind);
    if (slots.empty())
        throw KeyFault(Kind::noSlot,
                       "No slot of the key opens with " + std::string(namedIn(kind)) + elseChanged);
    const auto bytesOfSecret = digestible(kind, secret);
    if (!bytesOfSecret)
        throw KeyFault(Kind::wrongSecret, "What was given as a passphrase is not UTF-8.");
    const StopRequest* const stop = StopRequest::ofThisThread();
    for (const KeySlot* slot : slots) {
        if (stop && stop->isRequested())
            throw KeyFault(Kind::stopped, "It was stopped.");
        platform::SecretBytes bytes(platform::kSealingKeySize);
        if (!platform::openSealedSecret(bytes, slot->box, associatedWith(*slot, keyName_),
                                        wrappingKey(*slot, *bytesOfSecret)))
            continue;
        MasterKey key(std::move(bytes));
        check(key);
        return key;
    }
    throw KeyFault(Kind::wrongSecret, "What was given as " + std::string(namedIn(kind)) +
                                          " opens no slot of the key" + elseChanged);
}

void KeySlots::check(const MasterKey& key) const
{
    if (key.name() != keyName_ || sealOver(parsedLines_, key) != seal_)
        throwChanged();
}

std::optional<std::string> weaknessOf(std::string_view passphrase)
{
    const auto composed = platform::composedPassphrase(passphrase);
    if (!composed)
        return "The passphrase is not UTF-8: in another locale it would be a different one.";
    if (platform::characterCount(composed->view()) < kLeastPassphraseCharacters)
        return "The passphrase is too short: it needs 12 characters, and several words are better.";
    if (platform::differentCharacters(composed->view()) < kLeastDifferentCharacters)
        return "The passphrase repeats the same few characters.";
    return std::nullopt;
}

} // namespace stowline::backup
