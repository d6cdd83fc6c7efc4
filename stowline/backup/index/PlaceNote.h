// What is known of a place besides the item there: how it was looked at, or why nothing of it is
// held.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::backup {

/// A note of a place, one for each path at most.
struct PlaceNote {
    enum class Kind {
        walked,  ///< a folder that was named and looked at as a whole; the rules that held there
        missed,  ///< it could not be looked at, read or stored, and nothing of it is held
        leftOut, ///< by a rule; nothing of it, or of what is below it, is held but what was named
        cutOff   ///< a folder that was named, and whose run was interrupted; none has been whole
                 ///< since
    };
    std::string path;
    Kind kind = Kind::missed;
    /// Of `walked` the rules (packedRules), of the others why, for people.
    std::string text;

    bool operator==(const PlaceNote&) const = default;
};

/// Rules as a record has them ("exclude *.o"), in one text. None of them holds a NUL byte.
[[nodiscard]] std::string packedRules(const std::vector<std::string>& rules);
[[nodiscard]] std::vector<std::string> unpackedRules(std::string_view text);

} // namespace stowline::backup
#pragma GCC visibility pop
