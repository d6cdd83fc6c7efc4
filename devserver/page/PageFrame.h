// Whole pages: the sign-in and the overview's frame.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace stowline::devserver {

/// What the sign-in tells whoever opens it.
enum class SignInNote { none, refused, tooMany, ended };

/// The sign-in. Says nothing of any account, but the user name that was typed.
/// @param nonce of this answer, which its style carries
[[nodiscard]] std::string signInPage(std::string_view nonce, SignInNote note,
                                     std::string_view typedName, std::string_view ownAddress);

struct FrameParts {
    std::string viewer; ///< who is signed in
    bool isOfAll = false;
    std::int64_t madeAt = 0;
    std::string_view overview; ///< HTML
};

/// The overview's page. Reads well without script; with it, it keeps itself up to date.
[[nodiscard]] std::string overviewPage(std::string_view nonce, const FrameParts& parts);

} // namespace stowline::devserver
