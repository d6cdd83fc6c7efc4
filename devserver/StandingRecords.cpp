#include "devserver/StandingRecords.h"

#include "stowline/platform/text/Numbers.h"

#include <iterator>
#include <optional>

namespace stowline::devserver {

namespace {

std::optional<std::uint64_t> numberOf(const std::string& name)
{
    return platform::wholeNumber<std::uint64_t>(name.substr(0, name.find('-')));
}

} // namespace

bool StandingRecords::canTake(const ChainRecord& record) const
{
    if (record.name.ends_with("-forgotten"))
        return false;
    const auto same = newest_.find(record.name);
    if (same != newest_.end() && same->second.content != record.content)
        return false;
    const auto number = numberOf(record.name);
    if (!number)
        return true;
    const auto begun = newestBegun_.upper_bound(*number);
    if (begun != newestBegun_.begin() && std::prev(begun)->second > record.version)
        return false;
    const auto older = oldest_.lower_bound(*number);
    return !record.name.ends_with("-begun") || older == oldest_.end() ||
           older->second >= record.version;
}

void StandingRecords::take(const ChainRecord& record)
{
    ChainRecord& newest = newest_[record.name];
    if (newest.version <= record.version)
        newest = record;
    const auto number = numberOf(record.name);
    if (!number)
        return;
    const auto from = oldest_.lower_bound(*number);
    if (from == oldest_.end() || from->second > record.version) {
        auto at = oldest_.insert_or_assign(*number, record.version).first;
        while (at != oldest_.begin() && std::prev(at)->second >= record.version)
            oldest_.erase(std::prev(at));
    }
    if (!record.name.ends_with("-begun"))
        return;
    const auto after = newestBegun_.upper_bound(*number);
    if (after == newestBegun_.begin() || std::prev(after)->second < record.version) {
        auto at = newestBegun_.insert_or_assign(*number, record.version).first;
        while (std::next(at) != newestBegun_.end() && std::next(at)->second <= record.version)
            newestBegun_.erase(std::next(at));
    }
}

} // namespace stowline::devserver
