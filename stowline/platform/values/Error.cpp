#include "stowline/platform/values/Error.h"

#include <algorithm>
#include <array>
#include <utility>

namespace stowline::platform {

namespace {

using enum FailureKind;

constexpr std::array<std::pair<FailureKind, std::string_view>, 22> kNames{{
    {unspecified, "unspecified"},
    {noMemory, "noMemory"},
    {noThread, "noThread"},
    {unexpected, "unexpected"},
    {hostUnreachable, "hostUnreachable"},
    {invalidSettings, "invalidSettings"},
    {unsendableValue, "unsendableValue"},
    {fault, "fault"},
    {unreadableAnswer, "unreadableAnswer"},
    {timeOut, "timeOut"},
    {connection, "connection"},
    {nameNotFound, "nameNotFound"},
    {certificate, "certificate"},
    {proxyRefused, "proxyRefused"},
    {refusedRedirect, "refusedRedirect"},
    {tooLarge, "tooLarge"},
    {requestTooLarge, "requestTooLarge"},
    {unavailable, "unavailable"},
    {badRequest, "badRequest"},
    {helperFailed, "helperFailed"},
    {refusedByService, "refusedByService"},
    {stopped, "stopped"},
}};

} // namespace

std::string_view nameOf(FailureKind kind)
{
    const auto known = std::find_if(kNames.begin(), kNames.end(),
                                    [kind](const auto& entry) { return entry.first == kind; });
    return known == kNames.end() ? kNames.front().second : known->second;
}

FailureKind failureKindNamed(std::string_view name)
{
    const auto known = std::find_if(kNames.begin(), kNames.end(),
                                    [name](const auto& entry) { return entry.second == name; });
    return known == kNames.end() ? unspecified : known->first;
}

} // namespace stowline::platform
