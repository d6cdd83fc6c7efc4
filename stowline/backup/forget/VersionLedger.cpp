#include "stowline/backup/forget/VersionLedger.h"

#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/index/PathKey.h"
#include "stowline/backup/index/StatementUse.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <functional>

namespace stowline::backup {

namespace {

/// A tree as the run before left it, with the run since which each content is there; what goes, and
/// what stays. A version or list that is not told is an empty text.
constexpr const char* kTables = R"(
    PRAGMA journal_mode = OFF;
    PRAGMA synchronous = OFF;
    PRAGMA cache_size = -65536;
    CREATE TABLE tree (path BLOB PRIMARY KEY, version TEXT, list TEXT, size INTEGER,
        stored_size INTEGER, checksum INTEGER, digest TEXT, kind TEXT, baseline TEXT,
        run INTEGER, since INTEGER, seen INTEGER) WITHOUT ROWID;
    CREATE TABLE going (version TEXT PRIMARY KEY, list TEXT, path BLOB, size INTEGER,
        stored_size INTEGER, checksum INTEGER, digest TEXT, kind TEXT, run INTEGER,
        is_there INTEGER) WITHOUT ROWID;
    CREATE TABLE kept (version TEXT PRIMARY KEY, list TEXT) WITHOUT ROWID;
    CREATE TABLE kept_paths (path BLOB PRIMARY KEY) WITHOUT ROWID;
    CREATE TABLE unnamed (path BLOB, digest TEXT, PRIMARY KEY (path, digest)) WITHOUT ROWID;
    BEGIN;
)";

/// How rows that leave the tree are sorted: ?1 and ?2 are those of the condition, ?3 is the last
/// kept run before. A row that is there since a later run was held by no kept one.
constexpr const char* kIntoKept[] = {
    "INSERT INTO kept SELECT version, list FROM tree WHERE {} AND since <= ?3 AND version <> ''"
    " ON CONFLICT (version) DO UPDATE SET list = excluded.list WHERE kept.list = ''",
    "INSERT OR IGNORE INTO kept SELECT baseline, '' FROM tree WHERE {} AND since <= ?3 AND"
    " baseline <> ''",
    "INSERT OR IGNORE INTO kept_paths SELECT path FROM tree WHERE {} AND since <= ?3 AND"
    " version = ''"};
constexpr const char* kIntoGoing[] = {
    "INSERT OR IGNORE INTO going SELECT version, list, path, size, stored_size, checksum, digest,"
    " kind, run, 0 FROM tree WHERE {} AND since > ?3 AND version <> '' AND list <> ''",
    "INSERT OR IGNORE INTO unnamed SELECT path, digest FROM tree WHERE {} AND since > ?3 AND"
    " (version = '' OR list = '')"};
constexpr const char* kOut = "DELETE FROM tree WHERE {} AND ?3 = ?3";

constexpr const char* kAt = "path = ?1 AND ?2 = ?2";
constexpr const char* kAtAndBelow = "path >= ?1 AND path < ?2";
constexpr const char* kNotSeen = "seen < ?1 AND ?2 = ?2";
constexpr const char* kAll = "?1 = ?1 AND ?2 = ?2";

/// Does database work; its faults are those of an index that cannot be written.
template <class Work> auto guarded(const Work& work) -> decltype(work())
{
    try {
        return work();
    } catch (const SQLite::Exception& fault) {
        throw indexFault("The temporary file of forgetting", fault, 0);
    }
}

void bindKey(SQLite::Statement& statement, int index, const std::string& key)
{
    statement.bind(index, key.data(), static_cast<int>(key.size()));
}

std::string keyIn(const SQLite::Column& column)
{
    return {static_cast<const char*>(column.getBlob()),
            static_cast<std::size_t>(column.getBytes())};
}

std::int64_t signedOf(std::uint64_t number)
{
    return static_cast<std::int64_t>(number);
}

/// Takes rows out of the tree, each to where it belongs.
class Leaving {
public:
    Leaving(SQLite::Database& database, const std::string& condition)
    {
        const auto add = [&](std::vector<SQLite::Statement>& statements, std::string text) {
            text.replace(text.find("{}"), 2, condition);
            statements.emplace_back(database, text);
        };
        for (const char* text : kIntoKept)
            add(always_, text);
        for (const char* text : kIntoGoing)
            add(whereForgetting_, text);
        add(out_, kOut);
    }

    using Bind = std::function<void(SQLite::Statement&)>;
    void take(std::int64_t lastKept, bool isForgetting, const Bind& bind)
    {
        const auto execute = [&](std::vector<SQLite::Statement>& statements) {
            for (SQLite::Statement& statement : statements) {
                const StatementUse use(statement);
                bind(statement);
                statement.bind(3, lastKept);
                statement.exec();
            }
        };
        execute(always_);
        if (isForgetting)
            execute(whereForgetting_);
        execute(out_);
    }

private:
    std::vector<SQLite::Statement> always_;
    std::vector<SQLite::Statement> whereForgetting_;
    std::vector<SQLite::Statement> out_;
};

} // namespace

struct VersionLedger::Tables {
    Tables() : database(made()) {}

    static SQLite::Database made()
    {
        SQLite::Database made("",
                              SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX);
        made.exec(kTables);
        return made;
    }

    /// The last kept run before the one that is taken; 0: none.
    [[nodiscard]] std::int64_t lastKept() const
    {
        const auto from = std::ranges::lower_bound(kept, run);
        return from == kept.begin() ? 0 : signedOf(*std::prev(from));
    }

    void leave(Leaving& rows, const Leaving::Bind& bind)
    {
        rows.take(lastKept(), isForgetting, bind);
    }

    void leaveBelow(const KeyRange& range)
    {
        leave(ofRange, [&range](SQLite::Statement& statement) {
            bindKey(statement, 1, range.first);
            bindKey(statement, 2, range.end);
        });
    }

    [[nodiscard]] bool isAnythingIn(const std::string& first, const std::string& end)
    {
        const StatementUse use(isBetween);
        bindKey(isBetween, 1, first);
        bindKey(isBetween, 2, end);
        return isBetween.executeStep();
    }

    void putContent(const std::string& key, const StoredItem& stored)
    {
        const StoredContent& content = *stored.content;
        const StatementUse use(put);
        bindKey(put, 1, key);
        put.bind(2, content.version);
        put.bind(3, content.list);
        put.bind(4, signedOf(stored.item.size));
        put.bind(5, signedOf(content.storedSize));
        put.bind(6, std::int64_t{content.checksum});
        put.bind(7, content.digest);
        put.bind(8, content.kind);
        put.bind(9, content.baseline);
        put.bind(10, signedOf(content.run));
        put.bind(11, signedOf(run));
        put.exec();
    }

    enum class Known { no, asItIs, asAnother };
    /// Whether the tree holds this very content at a path.
    [[nodiscard]] Known known(const std::string& key, const StoredContent& content)
    {
        const StatementUse use(find);
        bindKey(find, 1, key);
        if (!find.executeStep())
            return Known::no;
        const bool isSame = find.getColumn(0).getString() == content.version &&
                            find.getColumn(1).getString() == content.list &&
                            find.getColumn(2).getString() == content.digest &&
                            find.getColumn(3).getString() == content.baseline;
        return isSame ? Known::asItIs : Known::asAnother;
    }

    void leaveAt(const std::string& key)
    {
        leave(ofPath, [&key](SQLite::Statement& statement) {
            bindKey(statement, 1, key);
            statement.bind(2, 0);
        });
    }

    SQLite::Database database;
    SQLite::Statement find{database,
                           "SELECT version, list, digest, baseline FROM tree WHERE path = ?"};
    SQLite::Statement see{database, "UPDATE tree SET seen = ? WHERE path = ?"};
    SQLite::Statement put{database, "INSERT INTO tree VALUES (?,?,?,?,?,?,?,?,?,?,?11,?11)"};
    SQLite::Statement isBetween{database,
                                "SELECT 1 FROM tree WHERE path >= ? AND path < ? LIMIT 1"};
    Leaving ofPath{database, kAt};
    Leaving ofRange{database, kAtAndBelow};
    Leaving unseen{database, kNotSeen};
    Leaving rest{database, kAll};
    std::vector<std::uint64_t> kept; ///< of the chain that is taken, ascending
    bool isForgetting = false;
    std::uint64_t run = 0;
    bool isWhole = false;
};

VersionLedger::VersionLedger() : tables_(guarded([] { return std::make_unique<Tables>(); })) {}

VersionLedger::~VersionLedger() = default;

void VersionLedger::beginChain(std::vector<std::uint64_t> kept, bool isForgetting)
{
    tables_->kept = std::move(kept);
    tables_->isForgetting = isForgetting;
    tables_->run = 0;
}

void VersionLedger::beginRun(std::uint64_t run, bool isWhole)
{
    tables_->run = run;
    tables_->isWhole = isWhole;
}

void VersionLedger::hold(const StoredItem& item)
{
    guarded([&] {
        Tables& tables = *tables_;
        const KeyRange range = keysAtAndBelow(item.item.path);
        if (!tables.isWhole && item.item.kind != ItemKind::folder) {
            // What was in a folder that is none any more is gone with it.
            const std::string below = range.first + '\0';
            if (tables.isAnythingIn(below, range.end))
                tables.leaveBelow({below, range.end});
        }
        if (!item.content) {
            if (!tables.isWhole)
                tables.leaveAt(range.first);
            return;
        }
        switch (tables.known(range.first, *item.content)) {
        case Tables::Known::asItIs:
            if (tables.isWhole) {
                const StatementUse use(tables.see);
                tables.see.bind(1, signedOf(tables.run));
                bindKey(tables.see, 2, range.first);
                tables.see.exec();
            }
            return;
        case Tables::Known::asAnother:
            tables.leaveAt(range.first);
            break;
        case Tables::Known::no:
            break;
        }
        tables.putContent(range.first, item);
    });
}

void VersionLedger::drop(const std::string& path)
{
    guarded([&] { tables_->leaveBelow(keysAtAndBelow(path)); });
}

void VersionLedger::endRun()
{
    if (!tables_->isWhole)
        return;
    guarded([this] {
        tables_->leave(tables_->unseen, [this](SQLite::Statement& statement) {
            statement.bind(1, signedOf(tables_->run));
            statement.bind(2, 0);
        });
    });
}

void VersionLedger::endChain()
{
    guarded([this] {
        tables_->run = static_cast<std::uint64_t>(INT64_MAX);
        tables_->leave(tables_->rest, [](SQLite::Statement& statement) {
            statement.bind(1, 0);
            statement.bind(2, 0);
        });
    });
}

void VersionLedger::holdForGood(const StoredItem& item)
{
    if (!item.content)
        return;
    const StoredContent& content = *item.content;
    guarded([&] {
        const auto keep = [this](const std::string& version, const std::string& list) {
            SQLite::Statement keeping(tables_->database,
                                      "INSERT INTO kept VALUES (?, ?) ON CONFLICT (version) DO"
                                      " UPDATE SET list = excluded.list WHERE kept.list = ''");
            keeping.bind(1, version);
            keeping.bind(2, list);
            keeping.exec();
        };
        if (!content.baseline.empty())
            keep(content.baseline, "");
        if (!content.version.empty())
            return keep(content.version, content.list);
        SQLite::Statement keeping(tables_->database, "INSERT OR IGNORE INTO kept_paths VALUES (?)");
        bindKey(keeping, 1, pathKey(item.item.path));
        keeping.exec();
    });
}

void VersionLedger::settle()
{
    guarded([this] {
        tables_->database.exec(
            "CREATE INDEX IF NOT EXISTS kept_lists ON kept (list);"
            "DELETE FROM going WHERE EXISTS (SELECT 1 FROM kept WHERE kept.version = going.version)"
            " OR EXISTS (SELECT 1 FROM kept WHERE kept.list = going.list)"
            " OR EXISTS (SELECT 1 FROM kept_paths WHERE kept_paths.path = going.path);"
            "DELETE FROM unnamed WHERE EXISTS (SELECT 1 FROM kept_paths WHERE"
            " kept_paths.path = unnamed.path)");
    });
}

std::vector<VersionLedger::Candidate> VersionLedger::candidatesAfter(const std::string& version,
                                                                     std::size_t atMost) const
{
    return guarded([&] {
        SQLite::Statement rows(tables_->database,
                               "SELECT version, list, path, size, stored_size, checksum, digest,"
                               " kind, run, is_there FROM going WHERE version > ? ORDER BY version"
                               " LIMIT ?");
        rows.bind(1, version);
        rows.bind(2, static_cast<std::int64_t>(atMost));
        std::vector<Candidate> found;
        while (rows.executeStep()) {
            Candidate candidate;
            StoredContent& content = candidate.stored.content;
            content.version = rows.getColumn(0).getString();
            content.list = rows.getColumn(1).getString();
            candidate.stored.path = pathOfKey(keyIn(rows.getColumn(2)));
            candidate.stored.size = static_cast<std::uint64_t>(rows.getColumn(3).getInt64());
            content.storedSize = static_cast<std::uint64_t>(rows.getColumn(4).getInt64());
            content.checksum = static_cast<std::uint32_t>(rows.getColumn(5).getInt64());
            content.digest = rows.getColumn(6).getString();
            content.kind = rows.getColumn(7).getString();
            content.run = static_cast<std::uint64_t>(rows.getColumn(8).getInt64());
            candidate.isThere = rows.getColumn(9).getInt() != 0;
            found.push_back(std::move(candidate));
        }
        return found;
    });
}

std::uint64_t VersionLedger::candidateCount() const
{
    return guarded([this] {
        return static_cast<std::uint64_t>(
            tables_->database.execAndGet("SELECT count(*) FROM going").getInt64());
    });
}

std::uint64_t VersionLedger::unnamedCount() const
{
    return guarded([this] {
        return static_cast<std::uint64_t>(
            tables_->database.execAndGet("SELECT count(*) FROM unnamed").getInt64());
    });
}

void VersionLedger::noteThere(const std::string& version)
{
    guarded([&] {
        SQLite::Statement note(tables_->database,
                               "UPDATE going SET is_there = 1 WHERE version = ?");
        note.bind(1, version);
        note.exec();
    });
}

} // namespace stowline::backup
