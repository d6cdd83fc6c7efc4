#include "stowline/backup/RunHistory.h"

#include "stowline/backup/restore/RunReader.h"

namespace stowline::backup {

namespace {

constexpr std::uint64_t kPartBytes = 4U << 20;

RunState stateOf(RecordState state)
{
    switch (state) {
    case RecordState::begun:
        return RunState::begun;
    case RecordState::unfinished:
        return RunState::unfinished;
    case RecordState::finished:
        break;
    }
    return RunState::finished;
}

HistoryEnd endOf(const std::optional<ReadFailure>& failure, std::uint64_t run,
                 const StopRequest& stop)
{
    if (stop.isRequested())
        return {.end = ReadEnd::interrupted, .sentence = "It was interrupted.", .run = run};
    if (failure)
        return {.end = failure->end, .sentence = failure->sentence, .run = run};
    return {.end = ReadEnd::done, .sentence = {}, .run = run};
}

void requireNotStopped(const StopRequest& stop)
{
    if (stop.isRequested())
        throw RecordFault(RecordFault::Kind::interrupted, "It was interrupted.");
}

std::optional<RunDifference::Kind> differenceOf(const StoredItem& before, const StoredItem& after)
{
    const auto digest = [](const StoredItem& item) {
        return item.content ? item.content->digest : std::string();
    };
    const ItemRecord& a = before.item;
    const ItemRecord& b = after.item;
    if (a.kind != b.kind || a.linkTarget != b.linkTarget || a.deviceNumber != b.deviceNumber ||
        digest(before) != digest(after) || before.sameFileAs != after.sameFileAs)
        return RunDifference::Kind::changed;
    const bool isSame = a.modified == b.modified && a.mode == b.mode && a.owner == b.owner &&
                        a.group == b.group && a.attributes == b.attributes;
    return isSame ? std::nullopt : std::optional(RunDifference::Kind::metadata);
}

void compare(const ItemIndex& earlier, const ItemIndex& later,
             const std::function<void(const RunDifference&)>& take, const StopRequest& stop)
{
    earlier.forEach("/", [&](const StoredItem& before) {
        requireNotStopped(stop);
        const auto after = later.find(before.item.path);
        if (!after)
            take({RunDifference::Kind::went, before});
        else if (const auto kind = differenceOf(before, *after))
            take({*kind, *after});
        return true;
    });
    later.forEach("/", [&](const StoredItem& after) {
        requireNotStopped(stop);
        if (!earlier.find(after.item.path))
            take({RunDifference::Kind::came, after});
        return true;
    });
}

} // namespace

const char* nameOf(RunState state)
{
    switch (state) {
    case RunState::begun:
        return "begun";
    case RunState::unfinished:
        return "unfinished";
    case RunState::finished:
        break;
    }
    return "finished";
}

const char* nameOf(RunDifference::Kind kind)
{
    switch (kind) {
    case RunDifference::Kind::came:
        return "came";
    case RunDifference::Kind::went:
        return "went";
    case RunDifference::Kind::changed:
        return "changed";
    case RunDifference::Kind::metadata:
        break;
    }
    return "metadata";
}

HistoryEnd listRuns(const RunChoice& choice, const std::function<void(const RunEntry&)>& take,
                    const StopRequest& stop) noexcept
{
    const auto failure = failureOf([&] {
        RunReader reader(choice, 0, kPartBytes, stop);
        RecordChain chain = reader.openChain();
        for (const ListedRun& run : chain.runs()) {
            const RecordHead head = chain.head(run.run);
            take({.run = run.run,
                  .state = stateOf(run.state),
                  .begun = head.description.begun,
                  .ended = head.ended,
                  .items = head.items,
                  .newBytes = head.newBytes,
                  .bytes = head.bytes,
                  .host = head.description.host,
                  .user = head.description.identity.user});
        }
    });
    return endOf(failure, 0, stop);
}

HistoryEnd forEachItemOfRun(const RunChoice& choice, const std::string& path,
                            const std::function<bool(const StoredItem&)>& take,
                            const StopRequest& stop) noexcept
{
    std::uint64_t run = 0;
    const auto failure = failureOf([&] {
        RunReader reader(choice, 0, kPartBytes, stop);
        const RunReader::Tree tree = reader.readChosen();
        run = tree.head.run;
        bool isAnything = false;
        tree.items.forEach(path, [&](const StoredItem& item) {
            requireNotStopped(stop);
            isAnything = true;
            return take(item);
        });
        if (!isAnything)
            throw RecordFault(RecordFault::Kind::notFound,
                              "Nothing of " + path + " is in run " + std::to_string(run) + ".");
    });
    return endOf(failure, run, stop);
}

HistoryEnd forEachDifference(const RunChoice& choice, std::uint64_t from, std::uint64_t to,
                             const std::function<void(const RunDifference&)>& take,
                             const StopRequest& stop) noexcept
{
    const auto failure = failureOf([&] {
        RunReader reader(choice, 0, kPartBytes, stop);
        RecordChain chain = reader.openChain();
        ItemIndex earlier = ItemIndex::temporary();
        ItemIndex later = ItemIndex::temporary();
        (void)chain.load(from, earlier);
        (void)chain.load(to, later);
        compare(earlier, later, take, stop);
    });
    return endOf(failure, to, stop);
}

} // namespace stowline::backup
