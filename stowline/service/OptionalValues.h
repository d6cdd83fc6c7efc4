// Values for templates that a caller may leave out.
#pragma once

#include "stowline/soap/TemplateExpansion.h"

#include <optional>
#include <string_view>

namespace stowline {

/// Puts a value into the map, unless it is absent: then the placeholder stays in the template.
inline void setIfPresent(SubstitutionMap& params, const char* placeholder,
                         std::optional<std::string_view> value)
{
    if (value)
        params.emplace(placeholder, *value);
}

} // namespace stowline
