// Whether and how content is packed before it is sealed.
#pragma once

#include <optional>
#include <string_view>

namespace stowline::backup {

struct Compression {
    enum class Mode {
        off,
        automatic, ///< the usual level; stops on content that does not shrink
        level,
    } mode = Mode::automatic;
    int level = 0; ///< 1 to 19, of Mode::level

    /// Of "off", "auto" or a number from 1 to 19; absent for any other text.
    [[nodiscard]] static std::optional<Compression> parsed(std::string_view text);

    [[nodiscard]] bool operator==(const Compression&) const = default;
};

} // namespace stowline::backup
