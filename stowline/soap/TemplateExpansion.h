// Filling templates with the values of one call.
#pragma once

#include "stowline/platform/values/Value.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace stowline {

/// Map from a placeholder, delimiters included ("<<USERNAME>>"), to its value. Values that are not
/// strings are written in their textual form. A placeholder without a value is left out of the map.
using SubstitutionMap = Dictionary;

namespace soap {

/// Replaces every occurrence of every key by its value.
///
/// One literal pass over the whole current text for each key, in the order of the keys, from left
/// to right; delimiters have no meaning of their own. Placeholders without a value stay. With
/// escaping on, a value is escaped once as XML element content, which also keeps it from being
/// taken for a placeholder by a later pass. The template itself is never escaped. Reentrant.
[[nodiscard]] std::string expandTemplate(std::string_view templateText,
                                         const SubstitutionMap& substitutions,
                                         bool escapeXmlEntities);

/// Expands each template of a list; absent for an absent list, empty for an empty one.
[[nodiscard]] std::optional<std::vector<std::string>>
expandTemplates(const std::optional<std::vector<std::string>>& templates,
                const SubstitutionMap& substitutions, bool escapeXmlEntities);

} // namespace soap
} // namespace stowline
#pragma GCC visibility pop
