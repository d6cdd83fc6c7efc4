#include "stowline/backup/index/ItemIndex.h"

#include "stowline/backup/index/ItemTables.h"
#include "stowline/backup/index/ItemTraversal.h"
#include "stowline/backup/index/PathKey.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <utility>

namespace stowline::backup {

namespace {

std::int64_t databaseNumber(std::uint64_t number)
{
    return static_cast<std::int64_t>(number);
}

} // namespace

ItemIndex ItemIndex::open(const std::filesystem::path& file, const IndexOwner& owner)
{
    IndexFile opened = openIndexFile(file, owner);
    try {
        return ItemIndex(std::make_unique<Tables>(std::move(opened)));
    } catch (const SQLite::Exception& fault) {
        throw indexFault(file, fault, 0);
    }
}

IndexPosition ItemIndex::positionOf(const std::filesystem::path& file, const IndexOwner& owner)
{
    return positionInIndexFile(file, owner);
}

std::optional<IndexOwner> ItemIndex::ownerOf(const std::filesystem::path& file)
{
    return ownerOfIndexFile(file);
}

std::vector<IndexPosition> ItemIndex::knownRecordsOf(const std::filesystem::path& file,
                                                     const IndexOwner& owner)
{
    return knownRecordsInIndexFile(file, owner);
}

ItemIndex ItemIndex::temporary()
{
    return ItemIndex(std::make_unique<Tables>(temporaryIndexFile()));
}

ItemIndex::ItemIndex(std::unique_ptr<Tables> tables) : tables_(std::move(tables)) {}
ItemIndex::ItemIndex(ItemIndex&&) noexcept = default;

ItemIndex& ItemIndex::operator=(ItemIndex&& other) noexcept
{
    std::swap(tables_, other.tables_);
    return *this;
}

ItemIndex::~ItemIndex()
{
    try {
        if (tables_)
            commit();
    } catch (const std::exception&) {
        // Who must know commits before.
    }
}

ItemIndex::State ItemIndex::state() const
{
    return tables_->file.state;
}

IndexPosition ItemIndex::position() const
{
    return tables_->reading([this] {
        SQLite::Statement about(*tables_->file.database, "SELECT run, digest FROM about");
        if (!about.executeStep())
            return IndexPosition{};
        return IndexPosition{static_cast<std::uint64_t>(about.getColumn(0).getInt64()),
                             about.getColumn(1).getString()};
    });
}

void ItemIndex::setPosition(const IndexPosition& position)
{
    tables_->writing([&] { tables_->setPosition(position); });
}

std::vector<IndexPosition> ItemIndex::knownRecords() const
{
    return tables_->reading([this] { return knownRecordsIn(*tables_->file.database); });
}

void ItemIndex::noteKnownRecord(const IndexPosition& record)
{
    tables_->writing([&] { tables_->noteKnownRecord(record); });
}

void ItemIndex::forgetKnownRecords()
{
    tables_->writing([this] { tables_->forgetKnownRecords(); });
}

std::optional<StoredItem> ItemIndex::find(std::string_view path) const
{
    return tables_->reading([&] { return tables_->find(path); });
}

std::vector<StoredItem> ItemIndex::furtherNamesOf(std::string_view path, bool andBelow) const
{
    return tables_->reading([&] { return tables_->furtherNamesOf(path, andBelow); });
}

std::vector<StoredItem> ItemIndex::itemsIn(std::string_view folder) const
{
    constexpr std::size_t everything = INT64_MAX;
    return itemsIn(folder, {}, everything);
}

std::vector<StoredItem> ItemIndex::itemsIn(std::string_view folder, std::string_view after,
                                           std::size_t atMost) const
{
    return tables_->reading([&] {
        std::vector<StoredItem> items;
        const auto found = tables_->findFolder(folder);
        if (!found)
            return items;
        auto rows =
            tables_->rowsIn(found->id, folder, {.after = after, .atMost = databaseNumber(atMost)});
        items.reserve(rows.size());
        for (auto& row : rows)
            items.push_back(std::move(*row.item));
        return items;
    });
}

void ItemIndex::put(const StoredItem& item, std::uint64_t run)
{
    tables_->writing([&] { tables_->put(item, databaseNumber(run)); });
}

void ItemIndex::remove(std::string_view path, std::uint64_t run)
{
    tables_->writing([&] { tables_->remove(path, databaseNumber(run)); });
}

void ItemIndex::forEach(std::string_view below,
                        const std::function<bool(const StoredItem&)>& take) const
{
    tables_->reading([&] {
        if (const auto top = tables_->find(below); top && !take(*top))
            return;
        traverse(
            *tables_, keysAtAndBelow(below), {},
            [&take](std::string&&, const std::optional<StoredItem>& item) { return take(*item); });
    });
}

void ItemIndex::forEachChangeSince(std::uint64_t run,
                                   const std::function<bool(const Change&)>& take) const
{
    std::string gone; // the last path told as gone: what was below it went with it
    const auto tell = [&](std::string&& path, std::optional<StoredItem>& item) {
        if (!item && !gone.empty() && (gone == "/" || path.starts_with(gone + "/")))
            return true;
        if (!item)
            gone = path;
        return take(Change{std::move(path), std::move(item)});
    };
    tables_->reading([&] {
        traverse(*tables_, {.first = {}, .end = std::string(1, '\x01')},
                 {.changedAfter = databaseNumber(run), .withGone = true}, tell);
    });
}

std::vector<PlaceNote> ItemIndex::notesIn(std::string_view folder) const
{
    return tables_->reading([&] { return tables_->notes.in(folder); });
}

std::optional<PlaceNote> ItemIndex::noteAt(std::string_view path) const
{
    return tables_->reading([&] { return tables_->notes.at(path); });
}

void ItemIndex::putNote(const PlaceNote& note, std::uint64_t run)
{
    tables_->writing([&] {
        tables_->begin();
        tables_->notes.put(note, databaseNumber(run));
    });
}

void ItemIndex::removeNote(std::string_view path, std::uint64_t run)
{
    tables_->writing([&] {
        tables_->begin();
        tables_->notes.removeAt(path, databaseNumber(run));
    });
}

void ItemIndex::removeNotesBelow(std::string_view path, std::uint64_t run)
{
    tables_->writing([&] {
        tables_->begin();
        tables_->notes.removeBelow(path, databaseNumber(run));
    });
}

std::uint64_t ItemIndex::noteCount(PlaceNote::Kind kind) const
{
    return tables_->reading([&] { return tables_->notes.count(kind); });
}

void ItemIndex::forEachNote(const std::function<bool(const PlaceNote&)>& take) const
{
    tables_->reading([&] {
        tables_->notes.forEachChangeSince(
            -1, [&take](const std::string&, const std::optional<PlaceNote>& note) {
                return take(*note);
            });
    });
}

void ItemIndex::forEachNoteChangeSince(
    std::uint64_t run,
    const std::function<bool(const std::string&, const std::optional<PlaceNote>&)>& take) const
{
    tables_->reading([&] { tables_->notes.forEachChangeSince(databaseNumber(run), take); });
}

void ItemIndex::forgetVanished(std::uint64_t upToRun)
{
    tables_->writing([&] { tables_->forgetVanished(databaseNumber(upToRun)); });
}

void ItemIndex::clear()
{
    tables_->writing([&] { tables_->clear(); });
}

std::uint64_t ItemIndex::itemCount() const
{
    return tables_->reading([&] {
        return static_cast<std::uint64_t>(
            tables_->file.database->execAndGet("SELECT count(kind) FROM items").getInt64());
    });
}

std::uint64_t ItemIndex::goneSince(std::uint64_t run) const
{
    return tables_->reading([&] {
        SQLite::Statement query(*tables_->file.database,
                                "SELECT (SELECT count(*) FROM items WHERE kind IS NULL"
                                " AND changed_run > ?1) + (SELECT count(*) FROM emptied JOIN items"
                                " USING (folder, name) WHERE emptied.run > ?1"
                                " AND items.kind IS NOT NULL AND items.same_file_as IS NULL"
                                " AND (items.content_kind IS NULL OR items.size = 0))");
        query.bind(1, databaseNumber(run));
        return query.executeStep() ? static_cast<std::uint64_t>(query.getColumn(0).getInt64()) : 0;
    });
}

std::uint64_t ItemIndex::contentBytes() const
{
    return tables_->reading([&] {
        return static_cast<std::uint64_t>(
            tables_->file.database
                ->execAndGet("SELECT coalesce(sum(size), 0) FROM items"
                             " WHERE content_kind IS NOT NULL")
                .getInt64());
    });
}

std::uint64_t ItemIndex::staleCount() const
{
    return tables_->reading([&] {
        return static_cast<std::uint64_t>(
            tables_->file.database
                ->execAndGet("SELECT count(*) FROM items WHERE kind IS NOT NULL AND flags & 1")
                .getInt64());
    });
}

std::vector<std::string> ItemIndex::longestUnconfirmed(std::size_t atMost) const
{
    return tables_->reading([&] {
        SQLite::Statement query(*tables_->file.database,
                                "SELECT folders.path, items.name FROM items"
                                " JOIN folders ON folders.id = items.folder"
                                " WHERE content_kind IS NOT NULL"
                                " ORDER BY confirmed_run, items.folder, items.name LIMIT ?");
        query.bind(1, databaseNumber(atMost));
        std::vector<std::string> paths;
        while (query.executeStep())
            paths.push_back(
                pathIn(pathOfKey(query.getColumn(0).getString()), query.getColumn(1).getString()));
        return paths;
    });
}

void ItemIndex::setConfirmed(std::string_view path, std::uint64_t run)
{
    tables_->writing([&] { tables_->setConfirmed(path, databaseNumber(run)); });
}

void ItemIndex::commit()
{
    tables_->writing([this] { tables_->commit(); });
}

} // namespace stowline::backup
