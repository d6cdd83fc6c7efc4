// A SOAP 1.1 message read into values.
#pragma once

#include "stowline/platform/values/Value.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::soap {

/// What a fault says (SOAP 1.1 section 4.4).
struct Fault {
    std::string code;
    std::string reason;
    std::optional<Value> detail;
};

/// The content of a message's body.
struct Message {
    /// Name and namespace of the body's first element; empty when the body is empty.
    std::string element;
    std::string namespaceUri;
    /// What the element holds: a dictionary of its children, or its text when it has none but
    /// text. Without prefix and attributes: a text-only element is a string, an empty one the
    /// empty string, one with xsi:nil is left out, siblings of one name become an array in
    /// document order. The body's element itself is a dictionary when it is empty.
    Value content;
    std::optional<Fault> fault; ///< set when the body's first element is a SOAP fault
};

struct MessageReading {
    std::optional<Message> message;
    std::string failure; ///< a sentence that says why there is no message
};

/// What a message may take, at most.
struct MessageLimits {
    std::size_t maximumElements = 4'000'000; ///< in the body
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
};

/// Reads an envelope. Refused: what is not well-formed, any DOCTYPE, nesting deeper than 256, a
/// document that is no SOAP 1.1 envelope or has no body, and what goes beyond a limit, which the
/// sentence names. Linear time; reentrant.
[[nodiscard]] MessageReading readMessage(std::string_view document,
                                         const MessageLimits& limits = {});

} // namespace stowline::soap
