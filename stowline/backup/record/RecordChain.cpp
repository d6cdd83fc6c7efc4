#include "stowline/backup/record/RecordChain.h"

#include "stowline/backup/record/RecordReader.h"
#include "stowline/backup/record/RecordWriter.h"
#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/files/SourceFile.h"
#include "stowline/platform/text/SystemErrorText.h"
#include "stowline/platform/threads/StopRequest.h"

#include <algorithm>
#include <system_error>

namespace stowline::backup {

namespace {

using Kind = RecordFault::Kind;

/// A full record is due after so many differences, or when they come to so much of it.
constexpr std::uint64_t kMostDifferences = 30;
constexpr std::uint64_t kMostOfFullDivisor = 2;
constexpr std::uint32_t kMostUnfinished = 99;
constexpr std::size_t kMostLosses = 30;
constexpr std::size_t kPiece = 65536;
constexpr const char* kPutName = "record.part";

std::string runText(std::uint64_t run)
{
    return "run " + std::to_string(run);
}

/// A fetched record that lies on this machine's disk, without a name.
struct FetchedRecord {
    platform::SourceFile file;
    RecordHead head;
    std::string digest;
    std::uint64_t size = 0;
};

/// A tree of a million items takes longer to be written or read than a stop may.
void requireGoingOn()
{
    const StopRequest* stop = StopRequest::ofThisThread();
    if (stop && stop->isRequested())
        throw RecordFault(Kind::interrupted, "It was interrupted.");
}

void readInto(const FetchedRecord& record, RecordReader& reader)
{
    std::string room(kPiece, '\0');
    for (std::uint64_t at = 0; at < record.size;) {
        requireGoingOn();
        int error = 0;
        const auto count = record.file.readAt(at, room, error);
        if (!count || *count == 0)
            throw RecordFault(Kind::failed, "A fetched record cannot be read from the disk: " +
                                                platform::systemErrorText(error) + ".");
        reader.feed({room.data(), *count});
        at += *count;
    }
    reader.finish();
}

/// A file that is gone with this.
class PutFile {
public:
    explicit PutFile(std::filesystem::path path) : path_(std::move(path))
    {
        std::error_code unimportant;
        std::filesystem::remove(path_, unimportant); // what a kill left
        file_ = platform::FileHandle::create(path_);
        if (!file_)
            throw RecordFault(Kind::failed, path_.string() + " is in the way of a record.");
    }
    ~PutFile()
    {
        if (file_)
            file_->discard();
    }
    PutFile(const PutFile&) = delete;
    PutFile& operator=(const PutFile&) = delete;

    void write(std::string_view bytes) { file_->write(bytes); }
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    std::optional<platform::FileHandle> file_;
};

bool isFullDue(const DifferenceCount& earlier, std::uint64_t newBytes)
{
    return earlier.records + 1 >= kMostDifferences ||
           earlier.bytes + newBytes > earlier.fullBytes / kMostOfFullDivisor;
}

} // namespace

RecordChain::RecordChain(RecordPlace& place, std::string name, std::filesystem::path workFolder)
    : place_(&place), name_(std::move(name)), workFolder_(std::move(workFolder))
{
}

RecordChain RecordChain::open(RecordPlace& place, const ChainIdentity& identity,
                              std::filesystem::path workFolder)
{
    return openNamed(place, chainName(identity), std::move(workFolder));
}

RecordChain RecordChain::openNamed(RecordPlace& place, std::string chain,
                                   std::filesystem::path workFolder)
{
    RecordChain opened(place, std::move(chain), std::move(workFolder));
    opened.list();
    return opened;
}

void RecordChain::list()
{
    bool isThere = false;
    for (std::string& chain : place_->chains()) {
        if (chain == name_)
            isThere = true;
        else
            otherChains_.push_back(std::move(chain));
    }
    if (!isThere)
        return;
    listAnew();
}

void RecordChain::listAnew()
{
    files_.clear();
    for (RecordFile& file : place_->files(name_)) {
        if (const auto name = parseRecordName(file.name))
            files_.emplace(*name, std::move(file));
    }
}

std::vector<ListedRun> RecordChain::runs() const
{
    std::vector<ListedRun> runs;
    for (const auto& [name, file] : files_) { // begun, unfinished, finished: the furthest is last
        const bool isKnown = !runs.empty() && runs.back().run == name.run;
        if (name.state == RecordState::forgotten) {
            if (isKnown)
                runs.back().isForgotten = true;
            continue;
        }
        if (!isKnown)
            runs.push_back({.run = name.run});
        ListedRun& run = runs.back();
        run.state = name.state;
        run.size = file.size;
        if (name.state == RecordState::unfinished)
            run.lastUnfinished = name.part;
    }
    return runs;
}

std::uint64_t RecordChain::newestRun() const
{
    return files_.empty() ? 0 : files_.rbegin()->first.run;
}

std::uint64_t RecordChain::newestFinished() const
{
    for (auto found = files_.rbegin(); found != files_.rend(); ++found) {
        if (found->first.state == RecordState::finished && !isForgotten(found->first.run))
            return found->first.run;
    }
    return 0;
}

/// The newest finished run, whether it is forgotten or not.
std::uint64_t RecordChain::newestShown() const
{
    for (auto found = files_.rbegin(); found != files_.rend(); ++found) {
        if (found->first.state == RecordState::finished)
            return found->first.run;
    }
    return 0;
}

bool RecordChain::isFinished(std::uint64_t run) const
{
    return files_.contains({run, RecordState::finished, 0});
}

bool RecordChain::isForgotten(std::uint64_t run) const
{
    return files_.contains({run, RecordState::forgotten, 0});
}

std::vector<std::uint64_t> RecordChain::forgottenRuns() const
{
    std::vector<std::uint64_t> runs;
    for (const auto& [name, file] : files_) {
        if (name.state == RecordState::forgotten)
            runs.push_back(name.run);
    }
    return runs;
}

std::vector<std::string> RecordChain::recordNames() const
{
    std::vector<std::string> names;
    for (const auto& [name, file] : files_)
        names.push_back(recordNameText(name));
    return names;
}

void RecordChain::refuseOlderThan(const IndexPosition& seen) const
{
    if (!shows(seen))
        throw RecordFault(Kind::rolledBack,
                          "The service shows no later run than " + std::to_string(newestShown()) +
                              ", but this machine has seen " + runText(seen.run) +
                              ". What the service holds is older than it should be: please ask "
                              "the provider.");
}

const RecordFile& RecordChain::furthest(std::uint64_t run) const
{
    const auto after = files_.upper_bound({run, RecordState::finished, 0});
    if (after == files_.begin() || std::prev(after)->first.run != run)
        throw RecordFault(Kind::notFound, "The " + runText(run) + " was not found.");
    return std::prev(after)->second;
}

namespace {

/// A record that a service shows in the place of another is none of this chain.
void checkHead(const RecordHead& head, const std::string& chain, const RecordFile& file)
{
    const auto name = parseRecordName(file.name);
    if (!name || head.run != name->run || head.state != name->state)
        throw RecordFault(Kind::damaged, "The record " + file.name + " is that of another run.");
    if (chainName(head.description.identity) != chain)
        throw RecordFault(Kind::damaged, "The record " + file.name +
                                             " is that of another machine, user or profile.");
}

FetchedRecord fetch(RecordPlace& place, const std::string& chain, const RecordFile& file,
                    const std::filesystem::path& workFolder)
{
    int error = 0;
    auto copy = platform::SourceFile::emptyIn(workFolder, error);
    std::uint64_t size = 0;
    RecordReader reader({});
    if (copy) {
        place.get(chain, file, [&](std::string_view bytes) {
            reader.feed(bytes);
            if (!copy->writeAt(size, bytes, error)) {
                copy.reset();
                return false;
            }
            size += bytes.size();
            return true;
        });
    }
    if (!copy)
        throw RecordFault(Kind::failed,
                          "A record cannot be kept in " + workFolder.string() +
                              " while it is read: " + platform::systemErrorText(error) + ".");
    reader.finish();
    checkHead(*reader.head(), chain, file);
    return {std::move(*copy), *reader.head(), reader.digest(), size};
}

} // namespace

RecordHead RecordChain::head(std::uint64_t run)
{
    const RecordFile& file = furthest(run);
    RecordReader reader({});
    bool isWhole = true;
    place_->get(name_, file, [&](std::string_view bytes) {
        reader.feed(bytes);
        isWhole = !reader.head();
        return isWhole;
    });
    if (isWhole)
        reader.finish();
    checkHead(reader.head().value(), name_, file);
    return *reader.head();
}

void RecordChain::expect(const std::vector<IndexPosition>& seen)
{
    expected_.clear();
    for (const IndexPosition& record : seen)
        expected_.emplace(record.run, record.digest);
}

void RecordChain::requireExpected(std::uint64_t run, const std::string& digest) const
{
    const auto expected = expected_.find(run);
    if (isFinished(run) && expected != expected_.end() && expected->second != digest)
        throw RecordFault(Kind::rolledBack,
                          "The record of " + runText(run) +
                              " on the service differs from the one that this machine has "
                              "seen. Please ask the provider.");
}

ChainLink RecordChain::linkOf(std::uint64_t run)
{
    if (const auto fetched = links_.find(run); fetched != links_.end())
        return fetched->second;
    const FetchedRecord record = fetch(*place_, name_, furthest(run), workFolder_);
    return links_.emplace(run, ChainLink{record.digest, record.head.predecessor}).first->second;
}

ChainFinding RecordChain::trustOf(std::uint64_t run)
{
    return walkBackTo(run, {.known = expected_,
                            .newest = newestFinished(),
                            .isThere = [this](std::uint64_t other) { return isFinished(other); },
                            .read = [this](std::uint64_t other) { return linkOf(other); }});
}

bool RecordChain::isWholeBelow(const IndexPosition& seen, std::uint64_t atMostBytes)
{
    std::uint64_t bytes = 0;
    for (IndexPosition wanted = seen;;) {
        const RecordFile& file = furthest(wanted.run);
        if (bytes > 0 && bytes + file.size > atMostBytes)
            return true;
        bytes += file.size;
        const FetchedRecord record = fetch(*place_, name_, file, workFolder_);
        requireExpected(wanted.run, record.digest);
        if (record.digest != wanted.digest)
            return false;
        if (!record.head.baseline)
            return true;
        wanted = {record.head.baseline->run, record.head.baseline->digest};
    }
}

void RecordChain::read(
    std::uint64_t run,
    const std::function<RecordListener(const RecordHead&, const std::string& digest)>& listener)
{
    const FetchedRecord record = fetch(*place_, name_, furthest(run), workFolder_);
    requireExpected(run, record.digest);
    RecordReader reader(listener(record.head, record.digest));
    readInto(record, reader);
}

namespace {

void noteKnown(ItemIndex& index, const std::vector<IndexPosition>& records)
{
    index.forgetKnownRecords();
    for (const IndexPosition& record : records)
        index.noteKnownRecord(record);
}

/// What an index knew before, with the finished ones of those that were read; these alone where one
/// of them is another than the index knew: then the chain was begun anew.
std::vector<IndexPosition> stillKnown(const std::vector<IndexPosition>& known,
                                      const std::vector<FetchedRecord>& read)
{
    std::map<std::uint64_t, std::string> digests;
    for (const IndexPosition& record : known)
        digests.emplace(record.run, record.digest);
    std::vector<IndexPosition> result;
    bool isSameChain = true;
    for (const FetchedRecord& record : read) {
        if (record.head.state != RecordState::finished)
            continue;
        const auto before = digests.find(record.head.run);
        isSameChain = isSameChain && (before == digests.end() || before->second == record.digest);
        result.push_back({record.head.run, record.digest});
    }
    if (isSameChain)
        result.insert(result.end(), known.begin(), known.end());
    return result;
}

} // namespace

std::optional<std::int64_t> RecordChain::storedAt(std::uint64_t run)
{
    return place_->storedAt(name_, furthest(run));
}

void RecordChain::noteForgotten(std::uint64_t run, const RunDescription& description)
{
    const RecordHead head{.run = run,
                          .state = RecordState::forgotten,
                          .description = description,
                          .ended = std::nullopt,
                          .baseline = std::nullopt};
    PutFile file(workFolder_ / kPutName);
    RecordWriter writer(head, [&file](std::string_view bytes) { file.write(bytes); });
    writer.finish();
    put({run, RecordState::forgotten, 0}, file.path(), writer.size());
}

void RecordChain::removeForgotten(std::uint64_t run)
{
    if (!isForgotten(run))
        throw RecordFault(Kind::failed, "The " + runText(run) + " is not forgotten.");
    const auto first = files_.lower_bound({run, RecordState::begun, 0});
    for (auto file = first; file != files_.end() && file->first.run == run;) {
        place_->remove(name_, file->second); // the note is the last of them
        file = files_.erase(file);
    }
}

RecordHead RecordChain::load(std::uint64_t run, ItemIndex& index)
{
    if (isForgotten(run))
        throw RecordFault(Kind::notFound, "Run " + std::to_string(run) +
                                              " is forgotten: what no other run holds is deleted, "
                                              "or is to be.");
    return loadEvenForgotten(run, index);
}

RecordHead RecordChain::loadEvenForgotten(std::uint64_t run, ItemIndex& index)
{
    const auto known = index.knownRecords();
    index.clear();
    index.setPosition({});
    noteKnown(index, known);
    std::vector<FetchedRecord> records; // from the wanted one back to a full one
    for (std::uint64_t wanted = run;;) {
        const RecordFile& file = furthest(wanted);
        const auto state = parseRecordName(file.name)->state;
        if (state == RecordState::begun || (wanted != run && state != RecordState::finished))
            throw RecordFault(Kind::notFound,
                              "The " + runText(wanted) + " was cut off before it stored a record.");
        records.push_back(fetch(*place_, name_, file, workFolder_));
        const FetchedRecord& record = records.back();
        requireExpected(wanted, record.digest);
        if (state == RecordState::finished)
            links_.insert_or_assign(wanted, ChainLink{record.digest, record.head.predecessor});
        if (records.size() > 1) {
            const RecordHead& later = records[records.size() - 2].head;
            if (later.baseline->digest != record.digest)
                throw RecordFault(Kind::damaged, "The record of " + runText(wanted) +
                                                     " is not the one that " + runText(later.run) +
                                                     " builds on.");
        }
        if (!record.head.baseline)
            break;
        wanted = record.head.baseline->run;
    }
    try {
        for (auto record = records.rbegin(); record != records.rend(); ++record) {
            const std::uint64_t number = record->head.run;
            RecordReader reader(
                {.head = {},
                 .item = [&](const StoredItem& item) { index.put(item, number); },
                 .gone = [&](const std::string& path) { index.remove(path, number); },
                 .place =
                     [&](const PlaceLine& place) {
                         if (place.note)
                             index.putNote(*place.note, number);
                         else
                             index.removeNote(place.path, number);
                     }});
            readInto(*record, reader);
        }
        const FetchedRecord& last = records.front();
        noteKnown(index, stillKnown(known, records));
        if (last.head.state == RecordState::finished)
            index.setPosition({last.head.run, last.digest});
        else if (last.head.baseline)
            index.setPosition({last.head.baseline->run, last.head.baseline->digest});
        index.commit();
    } catch (...) {
        index.clear();
        noteKnown(index, known);
        throw;
    }
    return records.front().head;
}

std::uint64_t RecordChain::begin(
    const RunDescription& description, const IndexPosition& at,
    const std::function<void(std::uint64_t run, const std::string& digest)>& beforeStored)
{
    const std::uint64_t before = newestFinished();
    if (at.run != 0 && at.run != before)
        throw RecordFault(Kind::failed, "The index is at " + runText(at.run) +
                                            ", not at the newest " + "record, that of " +
                                            runText(before) + ".");
    RecordHead head{.run = newestRun() + 1,
                    .description = description,
                    .ended = std::nullopt,
                    .baseline = std::nullopt};
    head.predecessor = {before, at.digest};
    if (at.run != 0) {
        const RecordHead predecessor = this->head(before);
        if (predecessor.baseline) {
            head.differences = predecessor.differences;
            ++head.differences.records;
            head.differences.bytes += furthest(before).size;
        } else {
            head.differences = {.fullBytes = furthest(before).size};
        }
        head.losses = predecessor.losses;
        predecessorItems_ = predecessor.items;
    } else if (before != 0) { // what was found gone until then is not known, nor what is now
        head.losses = {{.run = head.run}};
    }
    PutFile file(workFolder_ / kPutName);
    RecordWriter writer(head, [&file](std::string_view bytes) { file.write(bytes); });
    writer.finish();
    begunDigest_ = writer.digest();
    if (beforeStored)
        beforeStored(head.run, begunDigest_);
    put({head.run, RecordState::begun, 0}, file.path(), writer.size());
    running_ = std::move(head);
    return running_->run;
}

std::optional<std::string> RecordChain::begunDigestOf(std::uint64_t run)
{
    const auto note = files_.find({run, RecordState::begun, 0});
    if (note == files_.end())
        return std::nullopt;
    return fetch(*place_, name_, note->second, workFolder_).digest;
}

bool RecordChain::isNumberOurs()
{
    const RecordName begun{running_.value().run, RecordState::begun, 0};
    const RecordName finished{running_.value().run, RecordState::finished, 0};
    bool isOurs = false;
    for (RecordFile& file : place_->files(name_)) {
        const auto name = parseRecordName(file.name);
        if (name == finished) // and not by this run, which is still going on
            return false;
        if (name == begun)
            isOurs = fetch(*place_, name_, file, workFolder_).digest == begunDigest_;
    }
    return isOurs;
}

void RecordChain::put(const RecordName& as, const std::filesystem::path& file, std::uint64_t size)
{
    const std::string name = recordNameText(as);
    place_->put(name_, name, file);
    // Its bytes are found by what a new listing says.
    files_.insert_or_assign(as, RecordFile{.name = name, .size = size, .id = {}});
}

StoredRecord RecordChain::storeUnfinished(const ItemIndex& index, const Figures& figures)
{
    std::uint32_t part = 1;
    for (const ListedRun& run : runs()) {
        if (run.run == running_.value().run)
            part = std::min(run.lastUnfinished + 1, kMostUnfinished);
    }
    return store(index, {running_.value().run, RecordState::unfinished, part}, figures);
}

StoredRecord RecordChain::storeFinished(const ItemIndex& index, const Figures& figures)
{
    StoredRecord stored = store(index, {running_.value().run, RecordState::finished, 0}, figures);
    running_.reset();
    return stored;
}

namespace {

/// What a record came to that lies ready to be stored.
struct WrittenRecord {
    std::string digest;
    std::uint64_t size = 0;
};

WrittenRecord writeRecord(const ItemIndex& index, const RecordHead& head, PutFile& file)
{
    RecordWriter writer(head, [&file](std::string_view bytes) { file.write(bytes); });
    if (head.baseline) {
        index.forEachChangeSince(head.baseline->run, [&writer](const ItemIndex::Change& change) {
            if (change.item)
                writer.write(*change.item);
            else
                writer.writeGone(change.path);
            requireGoingOn();
            return true;
        });
        index.forEachNoteChangeSince(
            head.baseline->run,
            [&writer](const std::string& path, const std::optional<PlaceNote>& note) {
                writer.write(PlaceLine{path, note});
                requireGoingOn();
                return true;
            });
    } else {
        index.forEach("/", [&writer](const StoredItem& item) {
            writer.write(item);
            requireGoingOn();
            return true;
        });
        index.forEachNote([&writer](const PlaceNote& note) {
            writer.write(PlaceLine{note.path, note});
            requireGoingOn();
            return true;
        });
    }
    writer.finish();
    return {writer.digest(), writer.size()};
}

} // namespace

/// What the index knew at the predecessor, and does not know any more, is gone.
void RecordChain::addLosses(RecordHead& head, const ItemIndex& index, const Figures& figures) const
{
    std::erase_if(head.losses, [&figures](const RunLoss& earlier) {
        return earlier.run <= figures.confirmedUpTo;
    });
    if (head.state != RecordState::finished || predecessorItems_ == 0)
        return;
    const RunLoss loss{.run = head.run,
                       .gone = std::min(index.goneSince(head.predecessor.run), predecessorItems_),
                       .items = predecessorItems_};
    if (!holdsForgettingBack(loss))
        return;
    if (head.losses.size() == kMostLosses)
        head.losses.pop_back(); // the first and the last tell enough
    head.losses.push_back(loss);
}

StoredRecord RecordChain::store(const ItemIndex& index, const RecordName& as,
                                const Figures& figures)
{
    RecordHead head = *running_;
    head.state = as.state;
    head.ended = figures.ended;
    head.items = index.itemCount();
    head.newBytes = figures.newBytes;
    head.failed = figures.failed;
    head.bytes = index.contentBytes();
    addLosses(head, index, figures);
    if (!head.predecessor.digest.empty()) {
        head.baseline = head.predecessor;
        PutFile file(workFolder_ / kPutName);
        const WrittenRecord written = writeRecord(index, head, file);
        if (as.state != RecordState::finished || !isFullDue(head.differences, written.size)) {
            put(as, file.path(), written.size);
            return {{head.run, written.digest},
                    false,
                    written.size,
                    head.items,
                    head.bytes,
                    head.losses};
        }
        head.baseline.reset();
        head.differences = {};
    }
    PutFile file(workFolder_ / kPutName);
    const WrittenRecord written = writeRecord(index, head, file);
    put(as, file.path(), written.size);
    return {{head.run, written.digest}, true, written.size, head.items, head.bytes, head.losses};
}

} // namespace stowline::backup
