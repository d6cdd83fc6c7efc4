// What machines report: events of central monitoring and summaries of backups; and e-mail to send.
#pragma once

#include "stowline/platform/values/Value.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace stowline::devserver {

/// One event or summary, as the fields its sender gave it.
struct JournalLine {
    std::string receivedAt; ///< universal time
    Dictionary fields;
};

struct Email {
    std::string to;
    std::string from;
    std::string subject;
    std::string body;
    bool isHtml = false;
};

/// Lines in SQLite, e-mails as files "mail/<number>.eml" (RFC 5322, MIME). Any thread.
class Journal {
public:
    explicit Journal(const std::filesystem::path& dataFolder);

    /// One of a self-test, "SelfTestEnded" and so on, is also kept as the last of its kind.
    void addEvent(const Dictionary& fields);
    void addReport(const Dictionary& fields);

    /// The newest first: of everybody, or those that name an account as "userName".
    [[nodiscard]] std::vector<JournalLine> events(int most, const std::string* user = nullptr)
    {
        return lines("event", most, user);
    }
    [[nodiscard]] std::vector<JournalLine> reports(int most, const std::string* user = nullptr)
    {
        return lines("report", most, user);
    }

    /// The last event of each system and each kind that tells of a self-test, the newest first.
    [[nodiscard]] std::vector<JournalLine> selfTests(const std::string& user);

    /// Keeps an e-mail. @return false when an address is none or the disk refuses
    [[nodiscard]] bool keep(const Email& email);

private:
    std::int64_t addLocked(const char* kind, const Dictionary& fields);
    [[nodiscard]] std::vector<JournalLine> lines(const char* kind, int most,
                                                 const std::string* user);
    void nameUsers();

    const std::filesystem::path mailFolder_;
    std::mutex mutex_;
    SQLite::Database database_;
};

/// An e-mail as a message: headers with the subject encoded where it is not ASCII (RFC 2047), the
/// body in Base64. Reentrant.
[[nodiscard]] std::string messageText(const Email& email, Date date, const std::string& messageId);

} // namespace stowline::devserver
