#include "devserver/page/RunHead.h"

#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/GzipStream.h"
#include "stowline/platform/text/Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace stowline::devserver {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kUsualPiece = std::size_t{64} << 10;
constexpr std::size_t kLargestPiece = std::size_t{8} << 20;
constexpr int kNewestFormat = 2;

/// Ends the unpacking once the line is there.
struct LineIsThere {};

/// The first line of packed bytes; absent when its end is not among them.
std::optional<std::string> firstLineOf(const std::string& packed)
{
    std::string line;
    platform::GzipReader reader(
        [&line](std::string_view bytes) {
            const auto end = bytes.find('\n');
            line += bytes.substr(0, end);
            if (end != std::string_view::npos)
                throw LineIsThere();
        },
        kLargestPiece);
    try {
        reader.feed(packed);
    } catch (const LineIsThere&) {
        return line;
    } catch (const platform::GzipFault&) {
        return std::nullopt;
    }
    return std::nullopt;
}

std::uint64_t numberIn(const Json& object, const char* name)
{
    const auto found = object.find(name);
    return found != object.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}

std::optional<RunHead> headIn(const std::string& line)
{
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object() || object.value("record", Json()) != "stowline run")
        return std::nullopt;
    const std::uint64_t format = numberIn(object, "format");
    if (format < 1 || format > kNewestFormat)
        return std::nullopt;
    return RunHead{numberIn(object, "items"), numberIn(object, "failed"),
                   numberIn(object, "new_bytes"), numberIn(object, "bytes")};
}

/// A part of a chain's name as it was before it was made harmless.
std::optional<std::string> partOf(std::string_view text)
{
    constexpr std::string_view mark = "=b64=";
    if (!text.starts_with(mark))
        return std::string(text);
    std::string base64(text.substr(mark.size()));
    std::ranges::replace(base64, '-', '+');
    std::ranges::replace(base64, '_', '/');
    base64.resize((base64.size() + 3) / 4 * 4, '=');
    return platform::strictlyDecodedBase64(base64);
}

} // namespace

std::optional<RunHead> readRunHead(const std::function<std::string(std::size_t)>& beginning)
{
    for (const std::size_t length : {kUsualPiece, kLargestPiece}) {
        const std::string packed = beginning(length);
        if (const auto line = firstLineOf(packed))
            return headIn(*line);
        if (packed.size() < length)
            break;
    }
    return std::nullopt;
}

namespace {

/// The last two parts of "MACHINE.USER.PROFILE"; absent for every other text.
std::optional<std::pair<std::string, std::string>> userAndProfile(std::string_view chain)
{
    const auto first = chain.find('.');
    const auto second = first == std::string_view::npos ? first : chain.find('.', first + 1);
    if (second == std::string_view::npos || chain.find('.', second + 1) != std::string_view::npos)
        return std::nullopt;
    const auto user = partOf(chain.substr(first + 1, second - first - 1));
    const auto profile = partOf(chain.substr(second + 1));
    if (!user || !profile || user->empty() || profile->empty())
        return std::nullopt;
    return std::pair(*user, *profile);
}

} // namespace

std::string chainText(std::string_view chain)
{
    const auto names = userAndProfile(chain);
    return names ? fmt::format("{}, profile {}", names->first, names->second) : std::string(chain);
}

std::string profileOfChain(std::string_view chain)
{
    const auto names = userAndProfile(chain);
    return names ? names->second : std::string();
}

} // namespace stowline::devserver
