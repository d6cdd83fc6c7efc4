// What ties an answer to the one request that it is to.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace stowline::platform {

/// What an answer says about its request.
enum class AnswerTie {
    none,   ///< nothing
    whole,  ///< that it is to this request, and that its body was read to the end
    foreign ///< that it is to another one, or to one of another length
};

/// A fresh random number for one request that is sent once: 32 hexadecimal digits. Nobody who has
/// not seen the request can name it.
/// @return empty where the system has no randomness
[[nodiscard]] std::string drawnRequestId();

/// Judges an answer by the header field of a name. A server that knows it answers with the number
/// that the request carried and, after a blank, with how many bytes it read as the request's body.
/// @param head status line and header fields of the answer
/// @param id what drawnRequestId() gave
[[nodiscard]] AnswerTie answerTieIn(std::string_view head, std::string_view fieldName,
                                    std::string_view id, std::size_t bodyBytes);

} // namespace stowline::platform
