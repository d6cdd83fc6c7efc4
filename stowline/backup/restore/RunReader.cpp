#include "stowline/backup/restore/RunReader.h"

#include "stowline/backup/record/KeptRuns.h"
#include "stowline/backup/record/StateFolder.h"
#include "stowline/backup/restore/Selection.h"
#include "stowline/backup/tree/RuleText.h"
#include "stowline/backup/tree/ShortList.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>

namespace stowline::backup {

namespace {

using Kind = RecordFault::Kind;

ReadEnd endOf(Kind kind)
{
    switch (kind) {
    case Kind::temporary:
        return ReadEnd::temporary;
    case Kind::refused:
        return ReadEnd::refused;
    case Kind::interrupted:
        return ReadEnd::interrupted;
    case Kind::notFound:
        return ReadEnd::notFound;
    case Kind::damaged:
        return ReadEnd::badContent;
    case Kind::rolledBack:
        return ReadEnd::rolledBack;
    case Kind::failed:
    case Kind::tooNew:
        break;
    }
    return ReadEnd::failed;
}

/// Not a fault of a record: the settings, or a name that several machines share.
class ChoiceFault : public std::runtime_error {
public:
    ChoiceFault(ReadEnd end, const std::string& sentence) : std::runtime_error(sentence), end_(end)
    {
    }
    [[nodiscard]] ReadEnd end() const { return end_; }

private:
    ReadEnd end_;
};

/// "m1.ann.default (user ann, profile default)".
std::string describe(const std::string& chain)
{
    const auto identity = parseChainName(chain);
    return identity ? chain + " (user " + identity->user + ", profile " + identity->profile + ")"
                    : chain;
}

std::string listOf(const std::vector<std::string>& chains)
{
    std::string text;
    for (const std::string& chain : chains)
        text += (text.empty() ? "" : ", ") + describe(chain);
    return text;
}

/// The first of them, and how many more there are.
std::string shortListOf(const std::vector<std::string>& chains)
{
    ShortList list;
    for (const std::string& chain : chains)
        list.add(describe(chain));
    return list.text();
}

/// The places of a kind of note: "/a, /b and 3 others".
std::string placesOf(const ItemIndex& items, PlaceNote::Kind kind)
{
    ShortList places;
    items.forEachNote([&](const PlaceNote& note) {
        if (note.kind == kind)
            places.add(note.path);
        return true;
    });
    return places.text();
}

/// A sentence about the files of which a run holds no one state; empty: there is none.
std::string changedSentence(std::uint64_t run, const ItemIndex& items)
{
    ShortList paths;
    items.forEach("/", [&](const StoredItem& stored) {
        if (stored.changedWhileRead)
            paths.add(stored.item.path);
        return true;
    });
    const std::uint64_t count = paths.count();
    if (count == 0)
        return {};
    return fmt::format("{} of run {} changed while {} read: what is stored of {} may mix several "
                       "states of {}: {}.",
                       platform::countText(count, "file", "files"), run,
                       count == 1 ? "it was" : "they were", count == 1 ? "it" : "each",
                       count == 1 ? "it" : "them", paths.text());
}

bool isAtOrBelowAny(std::string_view path, const std::vector<std::string>& folders)
{
    return std::ranges::any_of(
        folders, [path](const std::string& folder) { return isAtOrBelow(path, folder); });
}

/// Whether a folder is below one of the paths, or above one.
bool isOnTheWay(const std::string& folder, const std::vector<std::string>& paths)
{
    return isAtOrBelowAny(folder, paths) ||
           std::ranges::any_of(
               paths, [&folder](const std::string& path) { return isAtOrBelow(path, folder); });
}

/// The patterns of a folder that was named, for people: they leave out files of which there are no
/// notes.
std::string patternsOf(const PlaceNote& walked)
{
    constexpr std::size_t most = 200; ///< bytes
    std::string text;
    for (std::string rule : unpackedRules(walked.text)) {
        const NotedRule::Kind kind = parsedRule(rule).kind;
        if (kind == NotedRule::Kind::excludeFrom)
            rule = "those of a file of patterns";
        else if (kind != NotedRule::Kind::exclude && kind != NotedRule::Kind::include)
            continue;
        if (text.size() + rule.size() > most)
            return text + (text.empty() ? "" : ", ") + "and more";
        text += (text.empty() ? "" : ", ") + rule;
    }
    return text;
}

std::vector<std::string> without(std::vector<std::string> names, const std::string& name)
{
    std::erase(names, name);
    return names;
}

} // namespace

RunReader::RunReader(const RunChoice& choice, std::uint64_t bytesPerSecond, std::uint64_t partBytes,
                     const StopRequest& stop)
    : choice_(choice), tries_(choice.budgetPerStep, stop),
      bandwidth_(bytesPerSecond, std::chrono::steady_clock::now),
      source_(choice.account, tries_, bandwidth_, partBytes),
      place_(choice.account, tries_, source_, nullptr)
{
}

RecordChain RunReader::openChain()
{
    if (!WebServiceBroker::isRestoringConfigured())
        throw ChoiceFault(ReadEnd::notConfigured, std::string(kRestoringNotConfiguredMessage));
    origin_.chain = chosenChain(place_.chains());
    const auto identity = parseChainName(origin_.chain);
    RecordChain chain =
        RecordChain::openNamed(place_, origin_.chain, std::filesystem::temp_directory_path());
    if (choice_.stateFolder && identity) {
        const UploadOwner owner = uploadOwner(choice_.account, *identity);
        seen_ = seenRun(*choice_.stateFolder, owner);
        std::vector<IndexPosition> known = knownRecords(*choice_.stateFolder, owner);
        if (seen_.run != 0)
            known.push_back(seen_); // an index of before knows no others
        chain.expect(known);
    }
    return chain;
}

/// Where this user on this machine has seen runs, their absence is no lack of backups.
void RunReader::refuseLossOfOwnChain() const
{
    if (!choice_.stateFolder || !choice_.identity)
        return;
    const IndexPosition seen =
        seenRun(*choice_.stateFolder, uploadOwner(choice_.account, *choice_.identity));
    if (seen.run != 0)
        throw RecordFault(Kind::rolledBack,
                          fmt::format("The service shows no run of this user on this machine under "
                                      "the name {}, but run {} was seen here. If runs were "
                                      "deleted, \"stowline undelete\" may bring them back; else "
                                      "please ask the provider.",
                                      choice_.account.systemName, seen.run));
}

/// Never guesses: another's chain is taken only when there is no other that could be meant.
std::string RunReader::chosenChain(const std::vector<std::string>& chains)
{
    const std::string& machine = choice_.account.systemName;
    const auto isOwn = [this](const std::string& name) {
        return choice_.identity && name == chainName(*choice_.identity);
    };
    if (std::ranges::none_of(chains, isOwn) && (choice_.chain.empty() || isOwn(choice_.chain)))
        refuseLossOfOwnChain();
    if (chains.empty())
        throw RecordFault(Kind::notFound, "No run of the machine " + machine + " is recorded.");
    const auto has = [&chains](const std::string& name) {
        return std::ranges::find(chains, name) != chains.end();
    };
    if (!choice_.chain.empty()) {
        if (!has(choice_.chain))
            throw RecordFault(Kind::notFound, "The machine " + machine + " has no chain " +
                                                  choice_.chain + ". It has " + listOf(chains) +
                                                  ".");
        return choice_.chain;
    }
    std::string own = choice_.identity ? chainName(*choice_.identity) : "";
    if (has(own)) {
        const auto others = without(chains, own);
        if (!others.empty())
            origin_.notes.push_back("Under the name " + machine + " there are also the runs of " +
                                    shortListOf(others) + " (--chain reads them).");
        origin_.otherChains = others;
        return own;
    }
    std::vector<std::string> meant;
    for (const std::string& name : chains) {
        const auto identity = parseChainName(name);
        if (!choice_.identity || (identity && identity->profile == choice_.identity->profile))
            meant.push_back(name);
    }
    if (meant.empty())
        throw RecordFault(Kind::notFound, "The machine " + machine +
                                              " has no runs of the profile " +
                                              choice_.identity->profile + ". It has those of " +
                                              listOf(chains) + ".");
    if (meant.size() > 1)
        throw ChoiceFault(ReadEnd::severalChains,
                          "Several have backed up under the name " + machine +
                              ", and none of them is this user on this machine: " + listOf(meant) +
                              ". Please say which chain is meant.");
    origin_.notes.push_back("These are the runs of " + describe(meant.front()) +
                            (choice_.identity ? ", not of this user on this machine." : "."));
    return meant.front();
}

void RunReader::requireNothingOlder(const RecordChain& chain, bool isRunNamed)
{
    try {
        chain.refuseOlderThan(seen_);
    } catch (const RecordFault& fault) {
        if (!isRunNamed)
            throw RecordFault(fault.kind(),
                              std::string(fault.what()) +
                                  " A run that is there can still be read by its number.");
        origin_.notes.emplace_back(fault.what());
    }
}

std::uint64_t RunReader::chosenRun(RecordChain& chain)
{
    if (choice_.run)
        return *choice_.run;
    const std::vector<std::uint64_t> finished = keptRuns(chain);
    if (finished.empty())
        throw RecordFault(Kind::notFound, "No run of the machine " + choice_.account.systemName +
                                              " has been finished yet.");
    return choice_.at ? newestBegunBy(chain, finished, *choice_.at) : finished.back();
}

/// Numbers grow, moments need not: what a run says of its beginning comes from a clock that may
/// have been wrong.
std::uint64_t RunReader::newestBegunBy(RecordChain& chain,
                                       const std::vector<std::uint64_t>& finished,
                                       const Timestamp& at)
{
    const auto begun = [&chain](std::uint64_t run) { return chain.head(run).description.begun; };
    const auto chosen = std::find_if(finished.rbegin(), finished.rend(),
                                     [&](std::uint64_t run) { return begun(run) <= at; });
    if (chosen == finished.rend())
        throw RecordFault(Kind::notFound, "No run of the machine " + choice_.account.systemName +
                                              " had begun by then.");
    const auto before = std::next(chosen);
    if (before != finished.rend() && begun(*chosen) < begun(*before))
        origin_.notes.push_back(
            fmt::format("Run {0} came after run {1}, but says that it began before it: the clock "
                        "of the machine was wrong during one of them. If another run than {0} is "
                        "meant, please name it by its number.",
                        *chosen, *before));
    return *chosen;
}

RunReader::Tree RunReader::readChosen()
{
    RecordChain chain = openChain();
    requireNothingOlder(chain, choice_.run.has_value());
    Tree tree{.head = {}, .items = ItemIndex::temporary()};
    tree.head = chain.load(chosenRun(chain), tree.items);
    origin_.run = tree.head.run;
    if (const IndexPosition position = tree.items.position(); position.run == tree.head.run)
        origin_.digest = position.digest;
    origin_.trust = trustIn(chain, origin_.run);
    tree.sights = sightsIn(chain, tree.head, tree.items);
    origin_.lack = lackOf(tree.head, tree.items);
    if (std::string changed = changedSentence(origin_.run, tree.items); !changed.empty())
        origin_.notes.push_back(std::move(changed));
    return tree;
}

Sights RunReader::sightsIn(RecordChain& chain, const RecordHead& head, const ItemIndex& items)
{
    return {head, items, chain.runs(), [&chain](std::uint64_t run) { return chain.head(run); }};
}

void RunReader::noteSights(const Sights& sights, const std::vector<std::string>& paths)
{
    std::ranges::move(sights.sentences(paths), std::back_inserter(origin_.notes));
}

void RunReader::noteIfForgotten()
{
    (void)failureOf([this] {
        const auto chain =
            RecordChain::openNamed(place_, origin_.chain, std::filesystem::temp_directory_path());
        if (chain.isForgotten(origin_.run) || !chain.isFinished(origin_.run))
            note(fmt::format("Run {} was forgotten while it was read: what is missing of it was "
                             "deleted with it. Please read another run.",
                             origin_.run));
    });
}

RecordTrust RunReader::trustIn(RecordChain& chain, std::uint64_t run)
{
    const ChainFinding finding = chain.trustOf(run);
    if (finding.trust == RecordTrust::unproven)
        origin_.notes.push_back(fmt::format(
            "It cannot be proven that the record of run {} is the one that was stored: {}.", run,
            finding.why));
    return finding.trust;
}

const char* nameOf(RecordTrust trust)
{
    switch (trust) {
    case RecordTrust::seen:
        return "seen";
    case RecordTrust::linked:
        return "linked";
    case RecordTrust::newest:
        return "newest";
    case RecordTrust::unproven:
        break;
    }
    return "unproven";
}

RunLack RunReader::lackOf(const RecordHead& head, const ItemIndex& items)
{
    const RunLack lack{.failed = head.failed,
                       .carriedForward = items.staleCount(),
                       .neverStored = items.noteCount(PlaceNote::Kind::missed),
                       .cutOff = items.noteCount(PlaceNote::Kind::cutOff),
                       .leftOut = items.noteCount(PlaceNote::Kind::leftOut)};
    const std::string run = "Run " + std::to_string(head.run);
    if (lack.failed > 0)
        origin_.notes.push_back(
            run + " could not look at, read or store " +
            platform::countText(lack.failed, "item", "items") +
            ". What earlier runs had stored of them is here as it was then; the rest is missing.");
    else if (lack.carriedForward > 0)
        origin_.notes.push_back(
            run + " holds " + platform::countText(lack.carriedForward, "item", "items") +
            " as an earlier run saw them: a run could not look at them, and none has since.");
    if (lack.neverStored > 0)
        origin_.notes.push_back("Nothing is stored of what neither run " +
                                std::to_string(head.run) +
                                " nor any before it could look at, read or store: " +
                                placesOf(items, PlaceNote::Kind::missed) + ".");
    if (lack.cutOff > 0)
        origin_.notes.push_back("A backup of " + placesOf(items, PlaceNote::Kind::cutOff) +
                                " was cut off before run " + std::to_string(head.run) +
                                ", and none had been whole since: what the run holds of it may be "
                                "incomplete. An earlier run may hold the rest.");
    return lack;
}

void RunReader::noteLeftOut(const RecordHead& head, const ItemIndex& items,
                            const std::vector<std::string>& paths)
{
    const std::string run = "Run " + std::to_string(head.run);
    ShortList places;
    std::map<std::string, std::string> folders; // by their patterns, the first of them
    items.forEachNote([&](const PlaceNote& note) {
        if (note.kind == PlaceNote::Kind::leftOut && isAtOrBelowAny(note.path, paths)) {
            places.add(note.path + " (" + note.text + ")");
        } else if (note.kind == PlaceNote::Kind::walked && isOnTheWay(note.path, paths)) {
            if (const std::string patterns = patternsOf(note); !patterns.empty())
                folders.try_emplace(patterns, note.path);
        }
        return true;
    });
    if (places.count() > 0)
        origin_.notes.push_back(run + " left out " + places.text("other place", "other places") +
                                ".");
    for (const auto& [patterns, folder] : folders)
        origin_.notes.push_back(
            fmt::format("Of {} run {} holds only what these patterns let through: {}.", folder,
                        head.run, patterns));
}

std::string whyNotHeld(const ItemIndex& items, std::string_view path)
{
    for (std::string_view at = path; !at.empty(); at = parentOf(at)) {
        const auto note = items.noteAt(at);
        if (!note)
            continue;
        const std::string place = at == path ? "It" : note->path;
        if (note->kind == PlaceNote::Kind::leftOut)
            return " " + place + " was left out: " + note->text + ".";
        if (note->kind == PlaceNote::Kind::missed)
            return " " + place + " could not be read: " + note->text;
        if (note->kind == PlaceNote::Kind::cutOff)
            return " A backup of " + note->path + " was cut off: not all of it may be stored.";
        return {};
    }
    return {};
}

std::optional<ReadFailure> failureOf(const std::function<void()>& work) noexcept
{
    try {
        work();
        return std::nullopt;
    } catch (const RecordFault& fault) {
        return ReadFailure{endOf(fault.kind()), platform::handledSentence()};
    } catch (const ChoiceFault& fault) {
        return ReadFailure{fault.end(), platform::handledSentence()};
    } catch (...) {
        return ReadFailure{ReadEnd::failed, platform::handledSentence()};
    }
}

} // namespace stowline::backup
