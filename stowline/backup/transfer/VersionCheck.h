// Whether the service still holds what was stored, as it was stored: by its word, not by its bytes.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/transfer/Tries.h"
#include "stowline/platform/values/Value.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace stowline::backup {

/// What is asked about.
struct StoredVersion {
    std::string path;
    std::uint64_t size = 0; ///< of the file
    StoredContent content;  ///< with its version
};

/// What the service's word of a version means.
struct VersionVerdict {
    enum class Kind {
        whole,   ///< everything that is told of it agrees with what was stored
        missing, ///< there is no such version, or its content is lost
        damaged, ///< something that is told of it does not agree, or it is said to be damaged
        untold,  ///< it is not said to be whole
    } kind = Kind::whole;
    std::string reason; ///< why it is not whole; no full stop
    /// Whether the service knows a version of this number, and whether what it tells of it is what
    /// was stored: also of one whose content is lost or damaged.
    enum class Identity { none, same, other } identity = Identity::same;

    [[nodiscard]] bool isWhole() const { return kind == Kind::whole; }
};

/// Whether the text is a number that a version can have: a positive decimal number as it is
/// written, of at most 63 bits. Any other names none.
[[nodiscard]] bool isVersionNumber(std::string_view text);

/// Compares what was stored with what the service tells of the version: its state, which must be
/// told, and as far as they are told both sizes, checksum and digest, or, without a digest, name
/// and path. A service that gives numbers again to other files shows here.
/// @param word what it tells of it; null: nothing
[[nodiscard]] VersionVerdict judged(const StoredVersion& stored, const Dictionary* word);

/// Asks the service, some hundred versions a call.
/// @return a verdict for each in turn; absent when a question failed: see `failure`, whose reason
///         is never empty unless the run was asked to stop
[[nodiscard]] std::optional<std::vector<VersionVerdict>>
askedAfter(const Account& account, std::span<const StoredVersion> versions, Tries& tries,
           std::optional<StepFailure>& failure);

} // namespace stowline::backup
