// Property lists: a Value as a file, in the XML and in the binary form.
#pragma once

#include "stowline/platform/values/Value.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// What reading gave: the value, or a sentence that says what is wrong and where.
struct PropertyListReading {
    std::optional<Value> value;
    std::string fault; ///< "line 12: …" for XML; empty when there is a value
};

/// Where in an XML property list each value stands, for messages to the author of the file.
struct PropertyListSource {
    /// Line (from 1) of each value by its path: keys joined by ".", list places as "[0]"
    /// ("WebServices.Authenticate.soapParams[0].name").
    std::map<std::string, int> lines;
    /// Paths of keys that stand twice in one dictionary; the later value counts.
    std::vector<std::string> repeatedKeys;
};

/// Reads either form; what starts with "bplist" is taken as binary, anything else as XML.
/// Numbers are signed when they fit 64 bits signed, else unsigned. A DOCTYPE is accepted in the XML
/// form when it has no internal subset, and never followed. Binary lists are checked for cycles,
/// depth (512) and expansion before they are built. Reentrant; never throws.
/// @param source filled for the XML form when given.
[[nodiscard]] PropertyListReading readPropertyList(std::string_view bytes,
                                                   PropertyListSource* source = nullptr);

/// Writes the binary form (version 00), in linear time; reading it takes linear time too. The root
/// may be any value.
/// @return absent when a text in it holds a NUL character or bytes that are not UTF-8, or values
///         are nested deeper than 512, which the form cannot carry.
[[nodiscard]] std::optional<std::string> writeBinaryPropertyList(const Value& root);

/// Writes the XML form; absent as above.
[[nodiscard]] std::optional<std::string> writeXmlPropertyList(const Value& root);

} // namespace stowline::platform
#pragma GCC visibility pop
