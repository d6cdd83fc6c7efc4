#include "stowline/backup/restore/RunReader.h"

#include "stowline/backup/RunState.h"
#include "stowline/backup/record/KeptRuns.h"
#include "stowline/backup/restore/Selection.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/HandledException.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
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
    constexpr std::size_t shown = 3;
    if (chains.size() <= shown)
        return listOf(chains);
    return listOf({chains.begin(), chains.begin() + shown}) + " and " +
           platform::countText(chains.size() - shown, "other", "others");
}

/// "/a, /b and 3 others".
std::string missedPlaces(const ItemIndex& items, std::uint64_t count)
{
    constexpr std::uint64_t shown = 3;
    std::string text;
    std::uint64_t named = 0;
    items.forEachNote([&](const PlaceNote& note) {
        if (note.kind != PlaceNote::Kind::missed)
            return true;
        text += (text.empty() ? "" : ", ") + note.path;
        return ++named < shown;
    });
    return count > named ? text + " and " + platform::countText(count - named, "other", "others")
                         : text;
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
        if (rule.starts_with("exclude-from "))
            rule = "those of a file of patterns";
        else if (!rule.starts_with("exclude ") && !rule.starts_with("include "))
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
    if (choice_.stateFolder && identity)
        seen_ = RunState::seen(*choice_.stateFolder, RunState::owner(choice_.account, *identity));
    return RecordChain::openNamed(place_, origin_.chain, std::filesystem::temp_directory_path());
}

/// Never guesses: another's chain is taken only when there is no other that could be meant.
std::string RunReader::chosenChain(const std::vector<std::string>& chains)
{
    const std::string& machine = choice_.account.systemName;
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

std::uint64_t RunReader::chosenRun(RecordChain& chain) const
{
    if (choice_.run)
        return *choice_.run;
    const std::vector<std::uint64_t> finished = keptRuns(chain);
    auto after = finished.end();
    if (choice_.at)
        after = std::ranges::partition_point(finished, [&](std::uint64_t run) {
            return chain.head(run).description.begun <= *choice_.at;
        });
    if (after == finished.begin())
        throw RecordFault(
            Kind::notFound,
            finished.empty()
                ? "No run of the machine " + choice_.account.systemName + " has been finished yet."
                : "No run of the machine " + choice_.account.systemName + " had begun by then.");
    return *std::prev(after);
}

RunReader::Tree RunReader::readChosen()
{
    RecordChain chain = openChain();
    requireNothingOlder(chain, choice_.run.has_value());
    if (!choice_.run)
        chain.expect(seen_);
    Tree tree{.head = {}, .items = ItemIndex::temporary()};
    tree.head = chain.load(chosenRun(chain), tree.items);
    origin_.run = tree.head.run;
    if (const IndexPosition position = tree.items.position(); position.run == tree.head.run)
        origin_.digest = position.digest;
    origin_.lack = lackOf(tree.head, tree.items);
    if (origin_.run == seen_.run && origin_.digest != seen_.digest)
        origin_.notes.push_back("The record of run " + std::to_string(origin_.run) +
                                " is another than the one that this machine has seen.");
    return tree;
}

RunLack RunReader::lackOf(const RecordHead& head, const ItemIndex& items)
{
    const RunLack lack{.failed = head.failed,
                       .carriedForward = items.staleCount(),
                       .neverStored = items.noteCount(PlaceNote::Kind::missed),
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
                                missedPlaces(items, lack.neverStored) + ".");
    return lack;
}

void RunReader::noteLeftOut(const RecordHead& head, const ItemIndex& items,
                            const std::vector<std::string>& paths)
{
    constexpr std::uint64_t shown = 3;
    const std::string run = "Run " + std::to_string(head.run);
    std::string places;
    std::uint64_t count = 0;
    std::map<std::string, std::string> folders; // by their patterns, the first of them
    items.forEachNote([&](const PlaceNote& note) {
        if (note.kind == PlaceNote::Kind::leftOut && isAtOrBelowAny(note.path, paths)) {
            if (count++ < shown)
                places += (places.empty() ? "" : ", ") + note.path + " (" + note.text + ")";
        } else if (note.kind == PlaceNote::Kind::walked && isOnTheWay(note.path, paths)) {
            if (const std::string patterns = patternsOf(note); !patterns.empty())
                folders.try_emplace(patterns, note.path);
        }
        return true;
    });
    if (count > shown)
        places += " and " + platform::countText(count - shown, "other place", "other places");
    if (count > 0)
        origin_.notes.push_back(run + " left out " + places + ".");
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
        return ReadFailure{endOf(fault.kind()), fault.what()};
    } catch (const ChoiceFault& fault) {
        return ReadFailure{fault.end(), fault.what()};
    } catch (const std::exception&) {
        return ReadFailure{ReadEnd::failed, platform::handledException().sentence};
    }
}

} // namespace stowline::backup
