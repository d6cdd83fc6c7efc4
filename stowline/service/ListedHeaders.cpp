#include "stowline/service/ListedHeaders.h"

#include "stowline/platform/text/Text.h"

#include <algorithm>

namespace stowline {

Dictionary listedHeaders(const platform::HttpResponseMessage& response, const Array& names)
{
    Dictionary listed;
    for (const auto& [name, value] : response.headers) {
        const auto match =
            std::find_if(names.begin(), names.end(), [&wanted = name](const Value& candidate) {
                return candidate.string() &&
                       platform::equalsIgnoringAsciiCase(*candidate.string(), wanted);
            });
        if (match == names.end())
            continue;
        const auto [known, isNew] = listed.emplace(*match->string(), value);
        if (!isNew)
            known->second = *known->second.string() + ", " + value;
    }
    return listed;
}

} // namespace stowline
