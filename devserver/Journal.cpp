#include "devserver/Journal.h"

#include "stowline/platform/desktop/Cryptography.h"
#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>

namespace stowline::devserver {

namespace {

constexpr const char* kSchema = R"sql(
    PRAGMA journal_mode = WAL;
    CREATE TABLE IF NOT EXISTS journal (
        id       INTEGER PRIMARY KEY AUTOINCREMENT,
        kind     TEXT NOT NULL,
        received TEXT NOT NULL DEFAULT CURRENT_TIMESTAMP,
        fields   BLOB NOT NULL
    ) STRICT;
    CREATE TABLE IF NOT EXISTS self_tests (
        user_name   TEXT NOT NULL,
        system_name TEXT NOT NULL,
        event_type  TEXT NOT NULL,
        event       INTEGER NOT NULL REFERENCES journal (id),
        PRIMARY KEY (user_name, system_name, event_type)
    ) STRICT, WITHOUT ROWID;
)sql";

constexpr int kBusyMilliseconds = 5000;
constexpr std::size_t kMessageIdBytes = 8;
constexpr const char* kUserField = "userName";
constexpr const char* kSelfTest = "SelfTest"; ///< events of self-tests begin with it

/// Something that can stand in a header: "name@domain" without blanks, controls and brackets.
bool isAddress(const std::string& text)
{
    const auto at = text.find('@');
    return at != std::string::npos && at > 0 && at + 1 < text.size() &&
           std::ranges::all_of(text,
                               [](char c) { return c > ' ' && c < 0x7f && c != '<' && c != '>'; });
}

bool isPlainAscii(const std::string& text)
{
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c < 0x7f; });
}

/// A text in encoded words of at most 75 characters, none of which ends inside a character.
std::string encodedWords(const std::string& text)
{
    constexpr std::size_t mostBytes = 39; // so that the line with the header's name is short enough
    std::string words;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t count = std::min(mostBytes, text.size() - start);
        while (count > 1 && start + count < text.size() &&
               (static_cast<unsigned char>(text[start + count]) & 0xC0U) == 0x80U)
            --count;
        words += (words.empty() ? "" : "\r\n ") +
                 fmt::format("=?UTF-8?B?{}?=", platform::encodedBase64(text.substr(start, count)));
        start += count;
    }
    return words;
}

std::string inLines(const std::string& base64)
{
    constexpr std::size_t longest = 76;
    std::string lines;
    for (std::size_t start = 0; start < base64.size(); start += longest)
        lines += base64.substr(start, longest) + "\r\n";
    return lines;
}

/// What a sender gave; empty where it cannot be read.
Dictionary fieldsIn(const SQLite::Column& column)
{
    const auto reading = platform::readPropertyList(
        {static_cast<const char*>(column.getBlob()), static_cast<std::size_t>(column.size())});
    const Dictionary* fields = reading.value ? reading.value->dictionary() : nullptr;
    return fields ? *fields : Dictionary();
}

} // namespace

std::string messageText(const Email& email, Date date, const std::string& messageId)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
    return fmt::format(
        "Date: {:%a, %d %b %Y %H:%M:%S} +0000\r\nFrom: {}\r\nTo: {}\r\n"
        "Subject: {}\r\nMessage-ID: <{}@stowline.example>\r\nMIME-Version: 1.0\r\n"
        "Content-Type: {}; charset=utf-8\r\nContent-Transfer-Encoding: base64\r\n"
        "\r\n{}",
        fmt::gmtime(std::chrono::system_clock::to_time_t(seconds)), email.from, email.to,
        isPlainAscii(email.subject) ? email.subject : encodedWords(email.subject), messageId,
        email.isHtml ? "text/html" : "text/plain", inLines(platform::encodedBase64(email.body)));
}

Journal::Journal(const std::filesystem::path& dataFolder)
    : mailFolder_(dataFolder / "mail"),
      database_((dataFolder / "journal.sqlite").string(),
                SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyMilliseconds)
{
    database_.exec(kSchema);
    nameUsers();
}

/// Adds what databases of earlier versions lack: whose each line is.
void Journal::nameUsers()
{
    SQLite::Statement known(database_,
                            "SELECT 1 FROM pragma_table_info('journal') WHERE name = 'user_name'");
    if (known.executeStep())
        return;
    SQLite::Transaction transaction(database_);
    database_.exec("ALTER TABLE journal ADD COLUMN user_name TEXT NOT NULL DEFAULT ''");
    SQLite::Statement query(database_, "SELECT id, fields FROM journal");
    SQLite::Statement update(database_, "UPDATE journal SET user_name = ? WHERE id = ?");
    while (query.executeStep()) {
        update.reset();
        update.bind(1, platform::findText(fieldsIn(query.getColumn(1)), kUserField));
        update.bind(2, query.getColumn(0).getInt64());
        update.exec();
    }
    database_.exec("CREATE INDEX journal_of_user ON journal (user_name, kind, id)");
    transaction.commit();
}

void Journal::addEvent(const Dictionary& fields)
{
    const std::lock_guard lock(mutex_);
    SQLite::Transaction transaction(database_);
    const std::int64_t id = addLocked("event", fields);
    if (const std::string type = platform::findText(fields, "eventType");
        type.starts_with(kSelfTest)) {
        SQLite::Statement note(database_, "INSERT OR REPLACE INTO self_tests VALUES (?,?,?,?)");
        note.bind(1, platform::findText(fields, kUserField));
        note.bind(2, platform::findText(fields, "systemName"));
        note.bind(3, type);
        note.bind(4, id);
        note.exec();
    }
    transaction.commit();
}

void Journal::addReport(const Dictionary& fields)
{
    const std::lock_guard lock(mutex_);
    (void)addLocked("report", fields);
}

std::int64_t Journal::addLocked(const char* kind, const Dictionary& fields)
{
    const std::string bytes = platform::writeBinaryPropertyList(fields).value_or("");
    SQLite::Statement insert(database_,
                             "INSERT INTO journal (kind, fields, user_name) VALUES (?,?,?)");
    insert.bind(1, kind);
    insert.bind(2, bytes.data(), static_cast<int>(bytes.size()));
    insert.bind(3, platform::findText(fields, kUserField));
    insert.exec();
    return database_.getLastInsertRowid();
}

std::vector<JournalLine> Journal::selfTests(const std::string& user)
{
    const std::lock_guard lock(mutex_);
    SQLite::Statement query(database_, "SELECT received, fields FROM journal WHERE id IN"
                                       " (SELECT event FROM self_tests WHERE user_name = ?)"
                                       " ORDER BY id DESC");
    query.bind(1, user);
    std::vector<JournalLine> found;
    while (query.executeStep())
        found.push_back({query.getColumn(0).getString(), fieldsIn(query.getColumn(1))});
    return found;
}

std::vector<JournalLine> Journal::lines(const char* kind, int most, const std::string* user)
{
    const std::lock_guard lock(mutex_);
    SQLite::Statement query(database_,
                            std::string("SELECT received, fields FROM journal WHERE kind = ?1") +
                                (user ? " AND user_name = ?3" : "") + " ORDER BY id DESC LIMIT ?2");
    query.bind(1, kind);
    query.bind(2, most);
    if (user)
        query.bind(3, *user);
    std::vector<JournalLine> found;
    while (query.executeStep())
        found.push_back({query.getColumn(0).getString(), fieldsIn(query.getColumn(1))});
    return found;
}

bool Journal::keep(const Email& email)
{
    if (!isAddress(email.to) || !isAddress(email.from))
        return false;
    const Date now = platform::currentDate();
    const std::string id = platform::hexadecimalText(platform::randomBytes(kMessageIdBytes));
    const std::string name = fmt::format("{}-{}.eml", now.time_since_epoch().count(), id);
    return platform::makePrivateFolder(mailFolder_) &&
           platform::writeFileAtomically(mailFolder_ / name, messageText(email, now, id));
}

} // namespace stowline::devserver
