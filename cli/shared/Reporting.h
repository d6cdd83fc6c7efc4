// Telling of a backup: a summary, an e-mail, a monitoring event; what cannot be sent is kept.
#pragma once

#include "cli/shared/CommandLine.h"
#include "cli/shared/RunFigures.h"
#include "cli/shared/Secret.h"
#include "cli/shared/Session.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace stowline::cli {

/// What a sending came to.
struct Sending {
    bool isDone = false;
    std::optional<Error> failure; ///< why not, as far as it is known
};

/// The sendings. They block for one call.
[[nodiscard]] Sending sendSummary(const std::string& username, const std::string& password,
                                  const RunFigures& figures);
[[nodiscard]] Sending sendEmail(const std::string& to, const std::string& from,
                                const std::string& subject, const std::string& body, bool isHtml);
[[nodiscard]] Sending sendReportEmail(const std::string& to, const std::string& from,
                                      const RunFigures& figures, bool isPlain);
[[nodiscard]] Sending sendEvent(const std::string& token, const std::string& event,
                                const RunFigures& figures);
/// Events of what followed the backup, with figures of their own (docs/reports.md).
[[nodiscard]] Sending sendSelfTestEvent(const std::string& token, const RunFigures& figures);
[[nodiscard]] Sending sendForgettingEvent(const std::string& token, const RunFigures& figures);

/// What is not well of all that a report tells of, in a few words; empty when all is.
[[nodiscard]] std::string reportTrouble(const RunFigures& figures);

/// The same as the beginning of a sentence, with what keeps runs from being forgotten; says so when
/// all is well.
[[nodiscard]] std::string reportHeadline(const RunFigures& figures);

/// "?" in the place of each byte that is not of UTF-8: a path may be of any bytes, and a report
/// that holds them cannot be sent.
[[nodiscard]] std::string asUtf8(std::string_view text);

/// The subject of the report's e-mail, with the day of the run, whenever it is sent; it says when
/// the run was not a good one.
[[nodiscard]] std::string reportSubject(const RunFigures& figures);

/// The body of the report's e-mail, with the names in it escaped: what came of the run and what
/// failed, in the place of "<!--||outcome||-->", else at its end. Absent without its template.
[[nodiscard]] std::optional<std::string> reportHtml(const RunFigures& figures);

/// A summary for the service, an e-mail for people, events for central monitoring.
enum class ReportKind { summary, email, event, selfTestEvent, forgettingEvent };

/// Whether a failure of this kind lets nobody hope to reach the service just then, and what to say
/// of it.
[[nodiscard]] bool isOutOfReach(FailureKind kind);
inline constexpr const char* kOutOfReach = "the service could not be reached";

/// Who tells of a run.
struct ReportSender {
    std::string username;
    std::optional<std::string> password; ///< only a summary needs it; absent: none is sent
    std::string whyNot;                  ///< not empty: nothing is tried, and this is why
};

/// What to tell after a run.
class ReportFlags {
public:
    void declare(const Command& command);

    [[nodiscard]] bool isAnyWanted() const { return report_ || monitor_ || !email_.empty(); }

    /// Reads the monitoring token, before the run takes its time. @return false after saying what
    /// is wrong
    [[nodiscard]] bool readToken();

    /// Whether something is wanted that takes the account's password.
    [[nodiscard]] bool needsPassword() const { return report_; }

    /// Sends what was kept from earlier runs and what is wanted of this one. What cannot be sent is
    /// kept and said on standard error. When the service cannot be reached for one of them, the
    /// others are not tried. Neither password nor token is ever kept.
    void tell(ReportSender sender, const RunFigures& figures) const;

private:
    struct Mailing {
        std::string to;
        std::string from;
        bool isPlain = false; ///< text alone
    };
    void sendKept(ReportSender& sender) const;
    [[nodiscard]] Sending send(ReportKind kind, const Mailing& mailing, ReportSender& sender,
                               const RunFigures& figures) const;
    [[nodiscard]] Sending sendOne(ReportKind kind, const Mailing& mailing,
                                  const ReportSender& sender, const RunFigures& figures) const;
    void keep(ReportKind kind, std::string why, const RunFigures& figures) const;
    [[nodiscard]] static std::optional<std::filesystem::path> outbox();

    bool report_ = false;
    bool monitor_ = false;
    bool isPlain_ = false;
    std::string email_;
    std::string from_;
    SecretOptions tokenOptions_;
    std::string token_;
};

} // namespace stowline::cli
