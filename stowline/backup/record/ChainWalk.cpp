#include "stowline/backup/record/ChainWalk.h"

#include "stowline/backup/record/RecordFault.h"

#include <fmt/format.h>

#include <optional>

namespace stowline::backup {

namespace {

using Kind = RecordFault::Kind;

/// A record that cannot be read breaks the chain, and is no reason to read nothing before it.
std::optional<ChainLink> readIfWhole(std::uint64_t run, const ChainView& chain)
{
    try {
        return chain.read(run);
    } catch (const RecordFault& fault) {
        if (fault.kind() != Kind::damaged && fault.kind() != Kind::notFound &&
            fault.kind() != Kind::tooNew)
            throw;
        return std::nullopt;
    }
}

[[noreturn]] void refuse(std::uint64_t run, const std::string& whoKnows)
{
    throw RecordFault(Kind::rolledBack,
                      fmt::format("The record of run {} on the service differs from the one "
                                  "that {}. Please ask the provider.",
                                  run, whoKnows));
}

ChainFinding unproven(std::string why)
{
    return {RecordTrust::unproven, std::move(why)};
}

/// What a record says came before it, when that cannot be followed to the run.
std::optional<ChainFinding> gapBefore(std::uint64_t at, const RecordLink& before, std::uint64_t run,
                                      const ChainView& chain)
{
    if (before.run < run || before.run >= at)
        return unproven(fmt::format("no later run builds on it, not even run {}", at));
    if (before.digest.empty())
        return unproven(
            fmt::format("run {} could not read the record of run {} before it", at, before.run));
    if (!chain.isThere(before.run))
        return unproven(fmt::format("the record of run {}, which lies between it and the later "
                                    "ones, is not there any more",
                                    before.run));
    return std::nullopt;
}

} // namespace

ChainFinding walkBackTo(std::uint64_t run, const ChainView& chain)
{
    if (const auto known = chain.known.find(run); known != chain.known.end()) {
        if (chain.read(run).digest != known->second)
            refuse(run, "this machine has seen");
        return {RecordTrust::seen, {}};
    }
    if (!chain.isThere(run))
        return unproven("it was not finished, and later runs name only finished ones");
    RecordLink at{chain.newest, {}};
    std::string whoKnows;
    for (const auto& [later, digest] : chain.known) {
        if (later > run && chain.isThere(later)) {
            at = {later, digest};
            whoKnows = "this machine has seen";
            break;
        }
    }
    if (at.run == run)
        return {RecordTrust::newest, {}};
    while (true) {
        const auto link = readIfWhole(at.run, chain);
        if (!link)
            return unproven(fmt::format("the record of run {}, which lies between it and the "
                                        "later ones, cannot be read",
                                        at.run));
        if (!at.digest.empty() && link->digest != at.digest) {
            if (at.run == run)
                refuse(run, whoKnows);
            return unproven(fmt::format("the record of run {}, which lies between it and the "
                                        "later ones, differs from the one that {}",
                                        at.run, whoKnows));
        }
        if (at.run == run)
            return {RecordTrust::linked, {}};
        if (auto gap = gapBefore(at.run, link->predecessor, run, chain))
            return *gap;
        whoKnows = fmt::format("run {} names", at.run);
        at = link->predecessor;
    }
}

} // namespace stowline::backup
