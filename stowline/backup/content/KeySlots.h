// The wrapped master key: one slot for each secret that opens it (docs/formats/key-slots.md).
#pragma once

#include "stowline/backup/content/KeyFault.h"
#include "stowline/backup/content/MasterKey.h"
#include "stowline/platform/desktop/SealedBox.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// What opens a slot.
enum class SecretKind {
    account,    ///< the account's key, which the service holds: the service could read
    passphrase, ///< the user's, which the service never sees
    keyFile,    ///< the bytes of a file of the user's, which the service never sees
};

struct KeySlot {
    std::string identifier; ///< 16 hexadecimal digits, at random
    SecretKind kind = SecretKind::passphrase;
    std::string label; ///< for people; in the clear
    platform::PassphraseCost cost;
    std::string salt; ///< platform::kPassphraseSaltSize bytes
    std::string box;  ///< the master key, sealed with the secret's key

    [[nodiscard]] bool operator==(const KeySlot&) const = default;
};

constexpr std::size_t kMostKeySlots = 64;
constexpr std::size_t kLongestSlotLabel = 200;
constexpr std::size_t kLongestSlotList = 65536;
constexpr std::size_t kLeastKeyFileSize = 32;
/// A list that asks for more is refused: it was not this program that made it.
constexpr platform::PassphraseCost kLeastPassphraseCost{.operations = 1, .memoryKib = 8};
constexpr platform::PassphraseCost kMostPassphraseCost{.operations = 16, .memoryKib = 1U << 20};

/// What a machine remembers of the list that it wrote or opened last, so that no older one and none
/// of another key is taken for it. Nothing in it is secret.
struct KnownSlotList {
    std::string keyName;
    std::uint64_t generation = 0;
    std::string digest; ///< SHA-256 of the list with its seal, 64 hexadecimal digits

    [[nodiscard]] bool operator==(const KnownSlotList&) const = default;
};

/// The slots of one master key. A plain value; the secrets go in by reference and are not kept.
/// Operations throw KeyFault, and std::bad_alloc without memory (opening and adding take the memory
/// of the slot's cost, usually 256 MiB). Those that change or write a list want its key, and throw
/// notPossible for another one, and damaged, leaving the list as it is, when the list was read and
/// is not as whoever has the key wrote it: what was changed on the way never becomes genuine.
class KeySlots {
public:
    /// Those of a fresh key: none yet.
    explicit KeySlots(const MasterKey& key) : keyName_(key.name()) {}

    /// Throws tooNew, or damaged for what is not of the form or costs too much to try
    /// (KeySlotCost.h). Whether it was written by who had the key is known only by open().
    [[nodiscard]] static KeySlots parsed(std::string_view text);

    /// To be stored; authenticated with the key. Each text that is made counts one generation up.
    /// Throws notPossible for a list of no slots, or of more bytes than a list may have, and leaves
    /// it as it is. What a later version put into its lines stays. Whoever stores it does so only
    /// where the list that was read still stands: of two machines that write the same generation
    /// one would undo what the other did.
    [[nodiscard]] std::string text(const MasterKey& key);

    /// How often the list was written.
    [[nodiscard]] std::uint64_t generation() const { return generation_; }
    [[nodiscard]] const std::string& keyName() const { return keyName_; }
    [[nodiscard]] const std::vector<KeySlot>& slots() const { return slots_; }

    /// Wraps the key once more. Throws notPossible, with the sentence of what is wrong, for a
    /// secret that is too weak, a label that is none, and a cost that no list may ask for.
    /// @return the slot's identifier
    /// @param secret a passphrase that weaknessOf() finds nothing wrong with; of a key file
    ///        kLeastKeyFileSize bytes or more; else not empty
    /// @param label text without control characters, at most kLongestSlotLabel bytes
    std::string add(const MasterKey& key, SecretKind kind, const platform::SecretBytes& secret,
                    const std::string& label, const platform::PassphraseCost& cost = {});

    /// Takes a slot out. Throws noSlot when there is none of that identifier, notPossible when it
    /// is the last. Whoever has an older list and the secret of the slot still has the key.
    void remove(const MasterKey& key, std::string_view identifier);

    /// The key, by a secret of a kind; slots of other kinds are not tried. Throws noSlot,
    /// wrongSecret, and damaged when the list was changed by somebody without the key; stopped,
    /// when the thread was asked to stop (StopScope), which it looks at between slots: each takes a
    /// second or so, at most some forty. Without `known` an older list, and a whole list that
    /// somebody made around another key and a secret that they know, are genuine.
    /// @param known what the machine remembers: another key, an earlier generation, and another
    /// list
    ///        of the same generation are refused (otherKey, older, forked) before the secret is
    ///        used
    [[nodiscard]] MasterKey open(SecretKind kind, const platform::SecretBytes& secret,
                                 const std::optional<KnownSlotList>& known = std::nullopt) const;

    /// What is to be remembered once the list was opened, or what text() gave was stored.
    [[nodiscard]] KnownSlotList known() const;

    /// Of a list that was parsed: throws damaged when the key did not write it just so.
    void check(const MasterKey& key) const;

private:
    KeySlots() = default;

    void requireOwn(const MasterKey& key) const;
    /// @return whether it is the very list that is known; false: a later one
    [[nodiscard]] bool isAsKnown(const KnownSlotList& known) const;

    std::string keyName_; ///< kKeyNameSize bytes
    std::uint64_t generation_ = 0;
    std::vector<KeySlot> slots_;
    std::string headLine_;               ///< as it was read
    std::vector<std::string> slotLines_; ///< likewise, of each slot
    std::string parsedLines_;            ///< all of them as they were read, without the last
    std::string seal_;                   ///< over them; empty: neither read nor written yet
};

/// The word for a kind of secret in the list: "account", "passphrase", "key-file".
[[nodiscard]] std::string_view wordOf(SecretKind kind);

/// Why a passphrase is not taken: a sentence; absent: it may be taken, which does not make it a
/// good one. It is counted in characters of its composed form (NFC).
[[nodiscard]] std::optional<std::string> weaknessOf(std::string_view passphrase);

} // namespace stowline::backup
