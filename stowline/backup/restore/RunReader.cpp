#include "stowline/backup/restore/RunReader.h"

#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <filesystem>
#include <new>

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
    const std::vector<std::string> chains = place_.chains();
    const std::string own = choice_.identity ? chainName(*choice_.identity) : "";
    std::string chosen;
    if (std::ranges::find(chains, own) != chains.end())
        chosen = own;
    else if (chains.size() == 1)
        chosen = chains.front();
    else if (chains.empty())
        throw RecordFault(Kind::notFound,
                          "No run of the machine " + choice_.account.systemName + " is recorded.");
    else
        throw ChoiceFault(ReadEnd::severalChains,
                          "Several machines or users have backed up under the name " +
                              choice_.account.systemName +
                              ", and none is this one. Please run this as the user, on the "
                              "machine, whose backup it is.");
    return RecordChain::openNamed(place_, chosen, std::filesystem::temp_directory_path());
}

std::uint64_t RunReader::chosenRun(RecordChain& chain) const
{
    if (choice_.run)
        return *choice_.run;
    std::vector<std::uint64_t> finished;
    for (const ListedRun& run : chain.runs()) {
        if (run.state == RecordState::finished)
            finished.push_back(run.run);
    }
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
    Tree tree{.head = {}, .items = ItemIndex::temporary()};
    tree.head = chain.load(chosenRun(chain), tree.items);
    return tree;
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
    } catch (const std::bad_alloc&) {
        return ReadFailure{ReadEnd::failed, "There is not enough memory."};
    } catch (const std::exception& fault) {
        return ReadFailure{ReadEnd::failed, fault.what()};
    }
}

} // namespace stowline::backup
