#include "stowline/backup/proof/ProofBook.h"

#include "stowline/backup/index/IndexFault.h"
#include "stowline/backup/index/PathKey.h"
#include "stowline/backup/index/StatementUse.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/FileHandle.h"
#include "stowline/platform/text/SystemErrorText.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <system_error>

namespace stowline::backup {

namespace {

namespace fs = std::filesystem;

// Both stand in the header of the database (docs/formats/proofs.md).
constexpr std::int32_t kApplication = 0x53745072; // "StPr"
constexpr std::int32_t kVersion = 1;
constexpr int kPatienceMilliseconds = 5000;
constexpr std::int64_t kDay = 86400;

/// What the self-test under way has chosen; gone with the connection, and on disk when it is much.
constexpr const char* kChosenTable = R"sql(
    CREATE TEMP TABLE chosen (
        turn      INTEGER PRIMARY KEY,
        key       BLOB NOT NULL,
        path      BLOB NOT NULL,
        size      INTEGER NOT NULL,
        first_run INTEGER NOT NULL,
        last_run  INTEGER NOT NULL
    ) STRICT
)sql";

constexpr const char* kTables = R"sql(
    CREATE TABLE about (
        service     TEXT NOT NULL,
        username    TEXT NOT NULL,
        system_name TEXT NOT NULL,
        machine     TEXT NOT NULL,
        user        TEXT NOT NULL,
        profile     TEXT NOT NULL
    ) STRICT;
    CREATE TABLE runs (
        run      INTEGER PRIMARY KEY,
        digest   TEXT NOT NULL,
        baseline INTEGER NOT NULL,
        read_at  INTEGER NOT NULL,
        damaged  INTEGER NOT NULL DEFAULT 0
    ) STRICT;
    CREATE TABLE contents (
        key       BLOB NOT NULL,
        path      BLOB NOT NULL,
        size      INTEGER NOT NULL,
        first_run INTEGER NOT NULL,
        last_run  INTEGER,
        seen_run  INTEGER NOT NULL,
        due       INTEGER NOT NULL,
        lot       INTEGER NOT NULL,
        proven    INTEGER NOT NULL DEFAULT 0,
        lost      INTEGER NOT NULL DEFAULT 0,
        PRIMARY KEY (key, first_run)
    ) STRICT, WITHOUT ROWID;
    CREATE INDEX standing ON contents (path) WHERE last_run IS NULL;
    CREATE INDEX turns ON contents (due, lot);
)sql";

void bindBytes(SQLite::Statement& statement, int at, const std::string& bytes)
{
    // An empty blob, not NULL.
    statement.bind(at, static_cast<const void*>(bytes.empty() ? "" : bytes.data()),
                   static_cast<int>(bytes.size()));
}

std::int64_t number(SQLite::Database& database, const char* query)
{
    return database.execAndGet(query).getInt64();
}

std::uint64_t countIn(SQLite::Statement& row, int column)
{
    return static_cast<std::uint64_t>(row.getColumn(column).getInt64());
}

IndexFault faultIn(const fs::path& file, const std::string& reason, IndexFault::Kind kind)
{
    return {kind, "The note of what self-tests have proven, " + file.string() +
                      ", cannot be used: " + reason + "."};
}

bool belongsTo(SQLite::Database& database, const IndexOwner& owner)
{
    SQLite::Statement about(
        database, "SELECT service, username, system_name, machine, user, profile FROM about");
    if (!about.executeStep())
        return false;
    const auto word = [&about](int column) { return about.getColumn(column).getString(); };
    return IndexOwner{word(0), word(1), word(2), word(3), word(4), word(5)} == owner;
}

bool isBook(SQLite::Database& database, const IndexOwner& owner)
{
    return number(database, "PRAGMA application_id") == kApplication &&
           number(database, "PRAGMA user_version") == kVersion && belongsTo(database, owner);
}

void makeTables(SQLite::Database& database, const IndexOwner& owner)
{
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    database.exec(kTables);
    SQLite::Statement about(database, "INSERT INTO about VALUES (?, ?, ?, ?, ?, ?)");
    int at = 1;
    for (const std::string* word : {&owner.service, &owner.username, &owner.systemName,
                                    &owner.machine, &owner.user, &owner.profile})
        about.bind(at++, *word);
    about.exec();
    database.exec("PRAGMA application_id = " + std::to_string(kApplication));
    database.exec("PRAGMA user_version = " + std::to_string(kVersion));
    transaction.commit();
}

/// @return null for a file that is not a book of this owner
std::unique_ptr<SQLite::Database> openOnce(const fs::path& file, const IndexOwner& owner)
{
    if (fs::exists(file) && !fs::is_regular_file(file)) // a pipe would be waited for
        return nullptr;
    (void)platform::FileHandle::create(file);
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    try {
        auto database = std::make_unique<SQLite::Database>(
            file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX, kPatienceMilliseconds);
        if (number(*database, "SELECT count(*) FROM sqlite_master") == 0)
            makeTables(*database, owner);
        const bool isWhole = database->execAndGet("PRAGMA quick_check(1)").getString() == "ok";
        return isWhole && isBook(*database, owner) ? std::move(database) : nullptr;
    } catch (const SQLite::Exception& fault) {
        const int code = fault.getErrorCode();
        if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_ERROR)
            return nullptr;
        throw;
    }
}

std::int64_t lotOf(std::mt19937_64& random)
{
    return static_cast<std::int64_t>(random() >> 1);
}

} // namespace

std::string proofKey(const std::string& path, const StoredContent& content)
{
    constexpr std::size_t digits = 32; // of hexadecimal ones: 16 bytes
    return platform::Sha256::of(path + '\0' + content.digest + '\0' + content.version)
        .substr(0, digits);
}

double proofCost(std::uint64_t size, std::uint64_t files, std::uint64_t bytes)
{
    const double byCount = files == 0 ? 0 : 1.0 / static_cast<double>(files);
    if (bytes == 0)
        return byCount;
    return (byCount + static_cast<double>(size) / static_cast<double>(bytes)) / 2;
}

struct ProofBook::Tables {
    Tables(fs::path path, std::unique_ptr<SQLite::Database> opened)
        : file(std::move(path)), database(std::move(opened)),
          closePath(*database, "UPDATE contents SET last_run = ?1 WHERE last_run IS NULL"
                               " AND path = ?2 AND key <> ?3"),
          closeBelow(*database, "UPDATE contents SET last_run = ?1 WHERE last_run IS NULL"
                                " AND path > ?2 AND path < ?3"),
          goOn(*database,
               "UPDATE contents SET first_run = CASE first_run WHEN 0 THEN ?2 ELSE first_run END,"
               " last_run = NULL, seen_run = ?2"
               " WHERE key = ?1 AND (last_run IS NULL OR first_run = 0 OR last_run = ?3)"),
          put(*database,
              "INSERT INTO contents (key, path, size, first_run, seen_run, due, lot, proven, lost)"
              " SELECT ?1, ?2, ?3, ?4, ?4, coalesce(min(due), ?5), ?6, coalesce(max(proven), 0),"
              " coalesce(max(lost), 0) FROM contents WHERE key = ?1")
    {
    }

    template <typename Work> auto guarded(const Work& work) -> decltype(work())
    {
        try {
            return work();
        } catch (const SQLite::Exception& fault) {
            throw faultIn(file, fault.what(), IndexFault::Kind::other);
        }
    }

    /// The path's own rows, but for one of them, and all below it are in no run from this one on.
    void close(const std::string& path, const std::string& exceptKey, bool andBelow)
    {
        const StatementUse use(closePath);
        closePath.bind(1, previousRun);
        bindBytes(closePath, 2, pathKey(path));
        bindBytes(closePath, 3, exceptKey);
        closePath.exec();
        if (!andBelow)
            return;
        const StatementUse useBelow(closeBelow);
        const KeyRange range = keysAtAndBelow(path);
        closeBelow.bind(1, previousRun);
        bindBytes(closeBelow, 2, range.first);
        bindBytes(closeBelow, 3, range.end);
        closeBelow.exec();
    }

    fs::path file;
    std::unique_ptr<SQLite::Database> database;
    SQLite::Statement closePath;
    SQLite::Statement closeBelow;
    SQLite::Statement goOn; ///< what the runs before hold, or held at a restart
    SQLite::Statement put;  ///< what is new, or comes back after runs without it
    std::mt19937_64 random{std::random_device{}()};
    std::unique_ptr<SQLite::Transaction> adding; ///< of a run
    std::int64_t run = 0;                        ///< that is added
    std::int64_t previousRun = 0;
    std::int64_t now = 0;
    bool isWhole = false;
};

ProofBook::ProofBook(std::unique_ptr<Tables> tables) : tables_(std::move(tables)) {}
ProofBook::ProofBook(ProofBook&&) noexcept = default;
ProofBook& ProofBook::operator=(ProofBook&&) noexcept = default;
ProofBook::~ProofBook() = default;

ProofBook ProofBook::open(const fs::path& file, const IndexOwner& owner, std::int64_t now)
{
    try {
        auto database = openOnce(file, owner);
        if (!database) {
            fs::remove_all(file.string() + ".unusable");
            fs::remove(file.string() + "-journal");
            fs::rename(file, file.string() + ".unusable");
            database = openOnce(file, owner);
        }
        if (!database)
            throw faultIn(file, "a new one is damaged at once", IndexFault::Kind::unwritable);
        const std::string tooLate = std::to_string(now + kDay);
        database->exec("UPDATE contents SET proven = 0, due = 0 WHERE due > " + tooLate +
                       " OR proven > " + tooLate);
        database->exec("UPDATE runs SET read_at = 0 WHERE read_at > " + tooLate);
        return ProofBook(std::make_unique<Tables>(file, std::move(database)));
    } catch (const SQLite::Exception& fault) {
        throw faultIn(file, fault.what(), IndexFault::Kind::other);
    } catch (const platform::FileFault& fault) {
        throw faultIn(file, platform::systemErrorText(fault.systemError()),
                      IndexFault::Kind::unwritable);
    } catch (const fs::filesystem_error& fault) {
        throw faultIn(file, fault.code().message(), IndexFault::Kind::unwritable);
    }
}

std::optional<ProofBook> ProofBook::look(const fs::path& file, const IndexOwner& owner)
{
    std::error_code fault;
    if (!fs::is_regular_file(file, fault))
        return std::nullopt;
    try {
        auto database = std::make_unique<SQLite::Database>(
            file.string(), SQLite::OPEN_READONLY | SQLite::OPEN_NOMUTEX, kPatienceMilliseconds);
        if (!isBook(*database, owner))
            return std::nullopt;
        return ProofBook(std::make_unique<Tables>(file, std::move(database)));
    } catch (const SQLite::Exception&) { // what cannot be read tells nothing
        return std::nullopt;
    }
}

std::vector<std::uint64_t> ProofBook::runs() const
{
    return tables_->guarded([this] {
        std::vector<std::uint64_t> runs;
        SQLite::Statement rows(*tables_->database, "SELECT run FROM runs ORDER BY run");
        while (rows.executeStep())
            runs.push_back(countIn(rows, 0));
        return runs;
    });
}

RecordLink ProofBook::newest() const
{
    return tables_->guarded([this] {
        SQLite::Statement row(*tables_->database,
                              "SELECT run, digest FROM runs ORDER BY run DESC LIMIT 1");
        return row.executeStep() ? RecordLink{countIn(row, 0), row.getColumn(1).getString()}
                                 : RecordLink();
    });
}

void ProofBook::keepOnly(std::span<const std::uint64_t> kept)
{
    tables_->guarded([&] {
        SQLite::Database& database = *tables_->database;
        SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        for (const std::uint64_t run : runs()) {
            if (std::ranges::find(kept, run) == kept.end())
                database.exec("DELETE FROM runs WHERE run = " + std::to_string(run));
        }
        std::int64_t before = -1;
        SQLite::Statement between(database, "DELETE FROM contents WHERE first_run > ?1 AND"
                                            " last_run IS NOT NULL AND last_run < ?2");
        const auto sweep = [&](std::int64_t next) {
            const StatementUse use(between);
            between.bind(1, before);
            between.bind(2, next);
            between.exec();
            before = next;
        };
        const auto left = runs();
        for (const std::uint64_t run : left)
            sweep(static_cast<std::int64_t>(run));
        sweep(std::numeric_limits<std::int64_t>::max());
        // What stands to the newest run has none any more when all later ones are gone.
        const std::string newest = std::to_string(left.empty() ? 0 : left.back());
        database.exec("DELETE FROM contents WHERE last_run IS NULL AND first_run > " + newest);
        transaction.commit();
    });
}

void ProofBook::restart()
{
    tables_->guarded([this] {
        SQLite::Transaction transaction(*tables_->database, SQLite::TransactionBehavior::IMMEDIATE);
        tables_->database->exec("DELETE FROM runs");
        tables_->database->exec(
            "DELETE FROM contents WHERE first_run > (SELECT min(other.first_run)"
            " FROM contents AS other WHERE other.key = contents.key)");
        tables_->database->exec("UPDATE contents SET first_run = 0, last_run = 0, seen_run = 0");
        transaction.commit();
    });
}

void ProofBook::beginRun(const RecordLink& run, const RecordLink& baseline, std::int64_t now)
{
    tables_->guarded([&] {
        Tables& tables = *tables_;
        tables.adding = std::make_unique<SQLite::Transaction>(
            *tables.database, SQLite::TransactionBehavior::IMMEDIATE);
        tables.run = static_cast<std::int64_t>(run.run);
        tables.previousRun = static_cast<std::int64_t>(newest().run);
        tables.now = now;
        tables.isWhole = baseline.run == 0;
        SQLite::Statement row(*tables.database, "INSERT INTO runs (run, digest, baseline, read_at)"
                                                " VALUES (?, ?, ?, ?)");
        row.bind(1, tables.run);
        row.bind(2, run.digest);
        row.bind(3, static_cast<std::int64_t>(baseline.run));
        row.bind(4, now);
        row.exec();
    });
}

void ProofBook::hold(const StoredItem& stored)
{
    tables_->guarded([&] {
        Tables& tables = *tables_;
        const std::string key =
            stored.content ? proofKey(stored.item.path, *stored.content) : std::string();
        if (!tables.isWhole)
            tables.close(stored.item.path, key, stored.item.kind != ItemKind::folder);
        if (!stored.content)
            return;
        const StatementUse goingOn(tables.goOn);
        bindBytes(tables.goOn, 1, key);
        tables.goOn.bind(2, tables.run);
        tables.goOn.bind(3, tables.previousRun);
        if (tables.goOn.exec() > 0)
            return;
        const StatementUse use(tables.put);
        bindBytes(tables.put, 1, key);
        bindBytes(tables.put, 2, pathKey(stored.item.path));
        tables.put.bind(3, static_cast<std::int64_t>(stored.content->storedSize));
        tables.put.bind(4, tables.run);
        tables.put.bind(5, tables.now);
        tables.put.bind(6, lotOf(tables.random));
        tables.put.exec();
    });
}

void ProofBook::drop(const std::string& path)
{
    tables_->guarded([&] { tables_->close(path, "", true); });
}

void ProofBook::endRun()
{
    tables_->guarded([this] {
        Tables& tables = *tables_;
        if (tables.isWhole)
            tables.database->exec(
                "UPDATE contents SET last_run = " + std::to_string(tables.previousRun) +
                " WHERE last_run IS NULL AND seen_run <> " + std::to_string(tables.run));
        tables.adding->commit();
        tables.adding.reset();
    });
}

void ProofBook::abandonRun() noexcept
{
    tables_->adding.reset();
}

void ProofBook::noteDamaged(std::uint64_t run)
{
    tables_->guarded([&] {
        SQLite::Statement row(*tables_->database,
                              "INSERT INTO runs (run, digest, baseline, read_at, damaged)"
                              " VALUES (?, '', 0, 0, 1) ON CONFLICT (run) DO UPDATE SET"
                              " damaged = 1");
        row.bind(1, static_cast<std::int64_t>(run));
        row.exec();
    });
}

std::vector<ProofBook::DamagedRun> ProofBook::damagedRuns() const
{
    return tables_->guarded([this] {
        std::vector<DamagedRun> runs;
        SQLite::Statement rows(*tables_->database,
                               "SELECT run, digest = '' FROM runs WHERE damaged ORDER BY run");
        while (rows.executeStep())
            runs.push_back({countIn(rows, 0), countIn(rows, 1) != 0});
        return runs;
    });
}

ProofBook::Choice ProofBook::choose(double share, std::uint64_t mostBytes, std::uint64_t roomForOne)
{
    return tables_->guarded([&] {
        SQLite::Database& database = *tables_->database;
        database.exec("DROP TABLE IF EXISTS temp.chosen");
        database.exec(kChosenTable);
        Choice choice;
        const auto signedSize = [](std::uint64_t bytes) {
            return static_cast<std::int64_t>(std::min<std::uint64_t>(bytes, INT64_MAX));
        };
        SQLite::Statement large(database, "SELECT count(*), coalesce(min(size), 0) FROM contents"
                                          " WHERE size > ?1 AND size <= ?2");
        large.bind(1, signedSize(roomForOne));
        large.bind(2, signedSize(mostBytes));
        (void)large.executeStep();
        choice.withoutRoom = countIn(large, 0);
        choice.leastRoom = countIn(large, 1);
        const Totals all = totals(0, mostBytes);
        SQLite::Transaction transaction(database);
        SQLite::Statement rows(database, "SELECT key, path, size, first_run, coalesce(last_run, ?1)"
                                         " FROM contents ORDER BY due, lot");
        rows.bind(1, static_cast<std::int64_t>(newest().run));
        SQLite::Statement take(database, "INSERT INTO temp.chosen (key, path, size, first_run,"
                                         " last_run) VALUES (?, ?, ?, ?, ?)");
        // A whole round, but for what rounding leaves of it.
        constexpr double nearlyNothing = 1e-9;
        double spent = 0;
        std::uint64_t bytes = 0;
        while (spent < share - nearlyNothing && rows.executeStep()) {
            const std::uint64_t size = countIn(rows, 2);
            if (size > roomForOne)
                continue;
            if (size > mostBytes - bytes) {
                choice.isShortOfBytes = choice.isShortOfBytes || size <= mostBytes;
                continue;
            }
            bytes += size;
            spent += proofCost(size, all.files, all.bytes);
            ++choice.contents;
            const StatementUse use(take);
            bindBytes(take, 1, rows.getColumn(0).getString());
            bindBytes(take, 2, rows.getColumn(1).getString());
            for (const int column : {2, 3, 4})
                take.bind(column + 1, rows.getColumn(column).getInt64());
            take.exec();
        }
        transaction.commit();
        return choice;
    });
}

std::vector<ProofCandidate> ProofBook::nextChosen(std::size_t mostContents, std::uint64_t mostBytes)
{
    return tables_->guarded([&] {
        std::vector<ProofCandidate> portion;
        std::vector<std::int64_t> turns;
        SQLite::Database& database = *tables_->database;
        SQLite::Statement rows(database, "SELECT turn, key, path, size, first_run, last_run"
                                         " FROM temp.chosen ORDER BY first_run, last_run, turn");
        std::uint64_t bytes = 0;
        while (portion.size() < mostContents && rows.executeStep()) {
            bytes += countIn(rows, 3);
            if (bytes > mostBytes && !portion.empty())
                break;
            turns.push_back(rows.getColumn(0).getInt64());
            portion.push_back({.key = rows.getColumn(1).getString(),
                               .path = pathOfKey(rows.getColumn(2).getString()),
                               .size = countIn(rows, 3),
                               .firstRun = countIn(rows, 4),
                               .lastRun = countIn(rows, 5)});
        }
        rows.reset();
        SQLite::Transaction transaction(database);
        SQLite::Statement drop(database, "DELETE FROM temp.chosen WHERE turn = ?");
        for (const std::int64_t turn : turns) {
            const StatementUse use(drop);
            drop.bind(1, turn);
            drop.exec();
        }
        transaction.commit();
        return portion;
    });
}

std::uint64_t ProofBook::runToReadFor(const ProofCandidate& content) const
{
    return tables_->guarded([&] {
        SQLite::Statement row(*tables_->database,
                              "SELECT run FROM runs WHERE run BETWEEN ?1 AND ?2 AND NOT damaged"
                              " ORDER BY read_at, run DESC LIMIT 1");
        row.bind(1, static_cast<std::int64_t>(content.firstRun));
        row.bind(2, static_cast<std::int64_t>(content.lastRun));
        return row.executeStep() ? countIn(row, 0) : 0;
    });
}

void ProofBook::settle(std::span<const Settlement> settlements, std::int64_t now)
{
    tables_->guarded([&] {
        SQLite::Transaction transaction(*tables_->database, SQLite::TransactionBehavior::IMMEDIATE);
        SQLite::Statement change(*tables_->database,
                                 "UPDATE contents SET due = ?2, lot = ?3,"
                                 " proven = CASE ?4 WHEN 0 THEN ?2 WHEN 1 THEN 0 ELSE proven END,"
                                 " lost = CASE ?4 WHEN 0 THEN 0 WHEN 1 THEN 1 ELSE lost END"
                                 " WHERE key = ?1");
        for (const Settlement& settlement : settlements) {
            const StatementUse use(change);
            bindBytes(change, 1, settlement.key);
            change.bind(2, now);
            change.bind(3, lotOf(tables_->random));
            change.bind(4, static_cast<int>(settlement.outcome));
            change.exec();
        }
        transaction.commit();
    });
}

void ProofBook::noteRead(std::uint64_t run, std::int64_t now)
{
    tables_->guarded([&] {
        SQLite::Statement change(
            *tables_->database,
            "WITH RECURSIVE read (run) AS (VALUES (?1) UNION SELECT runs.baseline FROM runs"
            " JOIN read ON runs.run = read.run WHERE runs.baseline <> 0)"
            " UPDATE runs SET read_at = ?2, damaged = 0 WHERE run IN (SELECT run FROM read)");
        change.bind(1, static_cast<std::int64_t>(run));
        change.bind(2, now);
        change.exec();
    });
}

ProofBook::Totals ProofBook::totals(std::int64_t since, std::uint64_t mostBytes) const
{
    return tables_->guarded([&] {
        SQLite::Statement row(*tables_->database,
                              "SELECT count(*), coalesce(sum(size), 0),"
                              " coalesce(sum(proven > ?1), 0),"
                              " coalesce(sum(CASE WHEN proven > ?1 THEN size ELSE 0 END), 0),"
                              " coalesce(sum(lost), 0), coalesce(sum(size > ?2), 0),"
                              " (SELECT count(*) FROM runs WHERE damaged),"
                              " coalesce(sum(lost AND last_run IS NULL), 0),"
                              " (SELECT damaged FROM runs ORDER BY run DESC LIMIT 1)"
                              " FROM contents");
        row.bind(1, since);
        row.bind(2, static_cast<std::int64_t>(std::min<std::uint64_t>(mostBytes, INT64_MAX)));
        (void)row.executeStep();
        return Totals{.files = countIn(row, 0),
                      .bytes = countIn(row, 1),
                      .provenFiles = countIn(row, 2),
                      .provenBytes = countIn(row, 3),
                      .lostFiles = countIn(row, 4),
                      .tooLargeFiles = countIn(row, 5),
                      .damagedRuns = countIn(row, 6),
                      .newestLostFiles = countIn(row, 7),
                      .isNewestDamaged = countIn(row, 8) != 0};
    });
}

std::vector<ProofBook::RunProof> ProofBook::proofs() const
{
    return tables_->guarded([this] {
        std::vector<RunProof> proofs;
        SQLite::Statement runs(*tables_->database,
                               "SELECT run, read_at, damaged FROM runs ORDER BY run");
        while (runs.executeStep()) {
            const bool isDamaged = countIn(runs, 2) != 0;
            proofs.push_back({.run = countIn(runs, 0),
                              .isDamaged = isDamaged,
                              .proven = isDamaged ? 0 : runs.getColumn(1).getInt64()});
        }
        // What begins and ends at a run, to be added up; and where a run has no moment yet: the
        // contents come by theirs, so that the first one that a run holds is its oldest.
        std::vector<RunProof> steps(proofs.size() + 1);
        std::vector<std::size_t> open(proofs.size() + 1); // the next run without a moment
        for (std::size_t i = 0; i < open.size(); ++i)
            open[i] = i;
        const auto nextOpen = [&open](std::size_t at) {
            while (open[at] != at)
                at = open[at] = open[open[at]];
            return at;
        };
        const auto placeOf = [&proofs](std::uint64_t run) {
            return static_cast<std::size_t>(
                std::ranges::lower_bound(proofs, run, {}, &RunProof::run) - proofs.begin());
        };
        SQLite::Statement rows(*tables_->database,
                               "SELECT first_run, last_run, proven, lost FROM contents"
                               " ORDER BY proven");
        while (rows.executeStep()) {
            const std::size_t first = placeOf(countIn(rows, 0));
            const std::size_t end =
                rows.getColumn(1).isNull() ? proofs.size() : placeOf(countIn(rows, 1) + 1);
            if (first >= end)
                continue;
            const std::int64_t proven = rows.getColumn(2).getInt64();
            const std::uint64_t isProven = proven != 0 ? 1 : 0;
            const std::uint64_t isLost = countIn(rows, 3);
            steps[first].files += 1;
            steps[end].files -= 1; // wraps around; the sums do not
            steps[first].provenFiles += isProven;
            steps[end].provenFiles -= isProven;
            steps[first].lostFiles += isLost;
            steps[end].lostFiles -= isLost;
            for (std::size_t at = nextOpen(first); at < end; at = nextOpen(at)) {
                proofs[at].proven = std::min(proofs[at].proven, proven);
                open[at] = at + 1;
            }
        }
        RunProof sum;
        for (std::size_t i = 0; i < proofs.size(); ++i) {
            proofs[i].files = sum.files += steps[i].files;
            proofs[i].provenFiles = sum.provenFiles += steps[i].provenFiles;
            proofs[i].lostFiles = sum.lostFiles += steps[i].lostFiles;
        }
        return proofs;
    });
}

} // namespace stowline::backup
