// One file on its way to the service: sent part by part, registered, asked about.
#pragma once

#include "stowline/backup/Account.h"
#include "stowline/backup/index/StoredItem.h"
#include "stowline/backup/transfer/ContentSource.h"
#include "stowline/backup/transfer/Pace.h"
#include "stowline/backup/transfer/Tries.h"
#include "stowline/backup/transfer/UploadJournal.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/files/SourceFile.h"
#include "stowline/platform/values/Value.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace stowline::backup {

/// Which web method registers a file.
enum class Registration { protect2, protectFile };

/// What all uploads of a run share. Any thread.
struct UploadContext {
    UploadContext(const UploadJournal& itsJournal, BandwidthLimit& itsBandwidth, Tries& itsTries)
        : journal(itsJournal), bandwidth(itsBandwidth), tries(itsTries)
    {
    }

    Account account;
    UploadOwner owner;
    std::string serverPath; ///< below which the service wants this machine's uploads
    const UploadJournal& journal;
    BandwidthLimit& bandwidth;
    Tries& tries;
    /// Of services that take no part without a ticket; absent: none is asked for.
    std::optional<TicketKeeper> tickets;
    std::atomic<bool> needsTicket = false; ///< a part was refused that had none
    std::filesystem::path spoolFolder;     ///< for copies of files that change; must exist
    std::uint64_t partBytes = 4U << 20;
    Registration registration = Registration::protect2;
    std::uint64_t run = 0; ///< that what is stored belongs to

    std::atomic<std::uint64_t> sentBytes = 0; ///< confirmed by the service
    std::atomic<std::uint64_t> sentParts = 0;
    std::atomic<std::uint64_t> registrationMicroseconds = 0; ///< spent in registering
    std::atomic<bool> hasToldVersions = false;
    /// Whether the service says anything of the files that it registered; it is not asked any more
    /// when it told nothing and never named a version.
    std::atomic<bool> answersQuestions = true;
};

/// What is to be uploaded.
struct UploadSubject {
    std::string path;         ///< names it to people, in the journal, and to the service
    std::string remoteFolder; ///< where it is registered, as the service carries it: remotePath()
    std::string remoteName;
    /// Opens it, each time anew. @param error the system's number when it cannot be opened
    std::function<std::optional<platform::SourceFile>(int& error)> open;
    /// Whether a later run can find it again and go on with it.
    bool isJournaled = true;
    std::string title = {}; ///< what people call it; empty: its path
};

struct UploadOutcome {
    enum class Kind {
        stored,
        failed,      ///< for good: a repetition would fail too
        temporary,   ///< tried until the time was used up
        refused,     ///< the service said no
        interrupted, ///< the run was asked to stop
        vanished,    ///< it was there no more, or no regular file any more
    } kind = Kind::failed;
    std::string sentence; ///< what went wrong; names the path
    // Of what was stored:
    StoredContent content;
    platform::FileState state; ///< of the file when its reading began
    Timestamp readBegan;
    bool wasResumed = false;
    bool changedWhileRead = false; ///< it mixes several states of the file
};

/// Uploads one file. One thread; many may run side by side. Throws std::bad_alloc alone.
///
/// One content a version: the file's state (identity, size, both times to the nanosecond) is the
/// same before the first byte and after the last. A file that changes meanwhile is copied aside and
/// the copy is sent; when it changed during the copying too, what was read is stored and marked.
/// So is one that holds more than its size says.
/// An upload that was cut off goes on only from the very same state, whose first bytes still have
/// the checksum that was confirmed; every other state is an upload of its own. A part carries its
/// place and its checksum, which makes a repetition harmless; what the service says it holds
/// decides where to go on. It is stored when the service says so twice: to the registration, and to
/// the question after it, unless it is a service that answers no such questions.
///
/// The journal's entry stays when the file is stored: whoever has noted that durably removes it.
class FileUploader {
public:
    FileUploader(UploadContext& context, UploadSubject subject)
        : context_(context), subject_(std::move(subject))
    {
    }

    [[nodiscard]] UploadOutcome upload();

    /// What an upload comes to when the file cannot be opened, by the system's number.
    [[nodiscard]] UploadOutcome outcomeOf(int systemError) const;

private:
    using Kind = UploadOutcome::Kind;
    /// The file is not what it was when its reading began: a copy of it has to be sent.
    struct Changed {};
    using Ending = std::variant<UploadOutcome, Changed>;
    /// What a step came to when it did not succeed.
    using Failure = std::optional<Ending>;

    [[nodiscard]] Ending uploadOpened(const platform::SourceFile& file);
    [[nodiscard]] UploadOutcome uploadChanging();
    [[nodiscard]] Failure writeJournal();
    [[nodiscard]] Failure sendAll(const platform::SourceFile& file, bool isJournaled);
    [[nodiscard]] Failure goOnWithEarlier(const platform::SourceFile& file);
    [[nodiscard]] Failure askWhatIsHeld();
    [[nodiscard]] Failure readUpTo(const platform::SourceFile& file, std::uint64_t place);
    [[nodiscard]] Failure sendParts(const platform::SourceFile& file, bool isJournaled);
    [[nodiscard]] Failure takeConfirmation(const platform::SourceFile& file, std::uint64_t sent);
    [[nodiscard]] Failure readPart(const platform::SourceFile& file, std::uint64_t wanted);
    [[nodiscard]] Failure requireEnd(const platform::SourceFile& file) const;
    [[nodiscard]] Failure sendPart(std::string_view bytes);
    [[nodiscard]] std::optional<UploadOutcome> registerFile();
    [[nodiscard]] bool haveRegistered(bool& isAccepted, std::optional<Error>& error);
    [[nodiscard]] bool registerInTime(ErrorSlot error) const;
    [[nodiscard]] bool registerOnce(ErrorSlot error) const;
    void takeVersion(const Dictionary& answer);
    [[nodiscard]] std::optional<Dictionary> answerToPart(std::string_view bytes,
                                                         const std::string& identifier,
                                                         std::optional<Error>& error) const;
    [[nodiscard]] std::optional<Dictionary> answerAboutFile(std::optional<Error>& error) const;
    [[nodiscard]] bool isAboutThisFile(const std::optional<Dictionary>& answer,
                                       std::optional<Error>& error) const;
    [[nodiscard]] Failure takeAnswer(const Dictionary& answer);
    [[nodiscard]] std::optional<UploadOutcome> failureOf(const std::optional<StepFailure>& failure,
                                                         const std::string& whenRefused) const;
    [[nodiscard]] UploadOutcome outcome(Kind kind, const std::string& why = {}) const;
    [[nodiscard]] UploadOutcome storedOutcome();
    void begin(const platform::FileState& state);
    void take(std::string_view bytes);

    UploadContext& context_;
    const UploadSubject subject_;
    JournalEntry entry_;
    platform::Sha256 digest_; ///< of the bytes that entry_.checksum is of
    std::uint64_t held_ = 0;  ///< as the service says
    Timestamp readBegan_;
    std::string version_;
    std::string list_;
    bool isRegistered_ = false;
    bool wasResumed_ = false;
    int stepsBack_ = 0;
    std::vector<char> part_;
};

/// What the bytes of a file are; absent when it could not be read to its end, changed while it was
/// read, or the run was asked to stop.
struct ContentReading {
    std::string digest; ///< SHA-256, hexadecimal
    std::uint32_t checksum = 0;
    platform::FileState state;
    Timestamp began;
};
[[nodiscard]] std::optional<ContentReading> readContent(const platform::SourceFile& file,
                                                        const StopRequest& stop);

/// The present moment as stamps of files are compared with it.
[[nodiscard]] Timestamp timestampNow();

} // namespace stowline::backup
