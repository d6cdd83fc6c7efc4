// A dictionary as XML.
#pragma once

#include "stowline/platform/values/Value.h"

#include <string>

#pragma GCC visibility push(default)
namespace stowline::SOAPSerializer {

/// Writes a dictionary as a run of elements, `<key>value</key>`, in the order of the keys.
///
/// A dictionary as value is written in the same way inside its element; any other value is its
/// textual form, escaped. Keys are written as they are and must be XML names. There is no
/// declaration, root element or white space; an empty dictionary gives an empty text. Reentrant.
[[nodiscard]] std::string TW_xmlString(const Dictionary& dictionary);

} // namespace stowline::SOAPSerializer
#pragma GCC visibility pop
