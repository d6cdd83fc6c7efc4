// Words for amounts: shares, sizes, spans of time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::cli {

/// "5%" as 0.05. @return absent for every other text, and beyond more than 0 to 100
[[nodiscard]] std::optional<double> parseShare(std::string_view text);

/// "200M", "64k", "1g", "17": bytes, by steps of 1024. @return absent for every other text, and 0
[[nodiscard]] std::optional<std::uint64_t> parseBytes(std::string_view text);

/// How much a self-test tests.
struct SelfTestAmount {
    double share = 0;
    std::uint64_t mostBytes = 0;
};
/// "1%,200M"; without a size there is no bound. @return absent for every other text
[[nodiscard]] std::optional<SelfTestAmount> parseSelfTestAmount(std::string_view text);

/// "36h", "3d", "2w"; a number alone is days. @return absent for every other text, for less than an
/// hour and more than a hundred years
[[nodiscard]] std::optional<std::chrono::seconds> parseSpan(std::string_view text);

/// "3 days", "36 hours".
[[nodiscard]] std::string spanText(std::chrono::seconds span);

/// What is wrong with an option's value, as a sentence without its full stop; empty: nothing.
[[nodiscard]] std::string faultInSelfTestAmount(const std::string& text);
[[nodiscard]] std::string faultInSpan(const std::string& text);

} // namespace stowline::cli
