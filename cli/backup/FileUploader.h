// One file on its way to the service: asked about, sent part by part, registered.
#pragma once

#include "cli/backup/FileTree.h"
#include "cli/backup/Pace.h"
#include "cli/backup/UploadJournal.h"
#include "cli/shared/Session.h"
#include "stowline/platform/files/FileHandle.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stowline::cli {

/// How an uploaded file is registered.
enum class RegistrationMethod { protect2, protectFile };

/// What all uploads of a run share. Any thread.
struct UploadRun {
    const Session& session;
    std::string systemName;
    std::string serverPath; ///< below which the service wants this machine's uploads
    UploadJournal& journal;
    BandwidthLimit& bandwidth;
    std::uint64_t partBytes = 0;
    Duration budgetPerStep{}; ///< how long to try one part, or the registration, again
    RegistrationMethod registration = RegistrationMethod::protect2;
    std::atomic<std::uint64_t> sentBytes = 0; ///< confirmed by the service
    std::atomic<std::uint64_t> sentParts = 0;
    std::atomic<std::uint64_t> registrationMicroseconds = 0; ///< spent in registering
};

struct UploadOutcome {
    enum class Kind {
        stored,
        failed,      ///< for good: a repetition would fail too
        temporary,   ///< tried until the time was used up
        refused,     ///< the service said no
        interrupted, ///< the user asked to stop
    } kind = Kind::failed;
    std::string sentence; ///< what went wrong
    bool wasResumed = false;
};

/// Uploads one file. One thread; many may run side by side.
///
/// The upload's identifier is made of account, machine, path, size, date and identity of the file,
/// so that a file that changed is another upload. A part carries its place and its checksum, which
/// makes a repetition harmless; what the service says it holds decides where to go on. The file is
/// looked at again after the last part: one that changed meanwhile is sent anew, at most twice.
class FileUploader {
public:
    FileUploader(UploadRun& run, LocalFile file) : run_(run), file_(std::move(file)) {}

    [[nodiscard]] UploadOutcome upload();

private:
    using Kind = UploadOutcome::Kind;
    /// What a step came to when it did not succeed.
    using Failure = std::optional<UploadOutcome>;

    /// One try of a step. @return whether it is done; else the error says why not, if anything
    using Attempt = std::function<bool(std::optional<Error>& error)>;

    /// Tries a step until it is done, refused or not worth trying any more.
    [[nodiscard]] Failure repeat(const Attempt& attempt, const std::string& whenRefused) const;

    [[nodiscard]] UploadOutcome uploadOnce();
    [[nodiscard]] Failure sendAndRegister(const platform::FileHandle& handle);
    [[nodiscard]] Failure askWhatIsHeld();
    [[nodiscard]] Failure sendParts(const platform::FileHandle& handle);
    [[nodiscard]] Failure sendPart(std::string_view bytes);
    [[nodiscard]] Failure registerFile();
    [[nodiscard]] bool registerOnce(ErrorSlot error) const;
    [[nodiscard]] std::optional<Dictionary> answerAboutFile(ErrorSlot error) const;
    [[nodiscard]] Failure goOnFrom(const platform::FileHandle& handle, std::uint64_t held);
    [[nodiscard]] Failure takeAnswer(const Dictionary& answer);
    [[nodiscard]] Failure waitBeforeNextTry(Backoff& backoff, const std::string& reason) const;
    [[nodiscard]] bool isUnchanged(const platform::FileHandle& handle) const;
    [[nodiscard]] std::string uniqueKey() const;

    UploadRun& run_;
    LocalFile file_;
    JournalEntry entry_;
    std::uint64_t held_ = 0; ///< as the service says
    bool isRegistered_ = false;
    bool hasChanged_ = false;
    bool wasResumed_ = false;
    std::vector<char> part_;
};

} // namespace stowline::cli
