// Exercises the selection of response headers: the first line of the input is the list, the rest a
// response. What is selected is listed, and its value holds no line break.
#include "stowline/service/ListedHeaders.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    using namespace stowline;
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const std::size_t end = std::min(text.find('\n'), text.size());
    Array names;
    std::istringstream words{std::string(text.substr(0, end))};
    for (std::string word; words >> word;)
        names.emplace_back(word);
    names.emplace_back(7);
    const auto message = platform::HttpResponseMessage::fromBytes(text.substr(end));
    for (const auto& [name, value] : listedHeaders(message, names)) {
        if (std::find(names.begin(), names.end(), Value(name)) == names.end())
            std::abort();
        if (!value.string() || value.string()->find('\n') != std::string::npos)
            std::abort();
    }
    return 0;
}
