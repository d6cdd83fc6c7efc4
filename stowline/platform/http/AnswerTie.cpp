#include "stowline/platform/http/AnswerTie.h"

#include "stowline/platform/http/HttpMessage.h"
#include "stowline/platform/text/Text.h"

#include <sys/random.h>

namespace stowline::platform {

std::string drawnRequestId()
{
    constexpr std::size_t count = 16;
    Data bytes(count);
    return ::getrandom(bytes.data(), count, 0) == static_cast<ssize_t>(count)
               ? hexadecimalText(bytes)
               : std::string();
}

AnswerTie answerTieIn(std::string_view head, std::string_view fieldName, std::string_view id,
                      std::size_t bodyBytes)
{
    const std::string expected = std::string(id) + ' ' + std::to_string(bodyBytes);
    AnswerTie tie = AnswerTie::none;
    for (const HttpHeader& header : HttpResponseMessage::fromBytes(head).headers) {
        if (!equalsIgnoringAsciiCase(header.first, fieldName))
            continue;
        if (tie != AnswerTie::none || header.second != expected)
            return AnswerTie::foreign;
        tie = AnswerTie::whole;
    }
    return tie;
}

} // namespace stowline::platform
