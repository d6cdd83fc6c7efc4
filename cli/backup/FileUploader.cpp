#include "cli/backup/FileUploader.h"

#include "cli/shared/Interruption.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/FileStatus.h"
#include "stowline/platform/http/HttpExchange.h"
#include "stowline/platform/http/ReadStream.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <charconv>
#include <random>

namespace stowline::cli {

namespace {

constexpr int kTriesOfAChangingFile = 3;
constexpr int kRefusalsTaken = 3; ///< a "no" may come from a server that is being restarted

std::string guidFor(const UploadRun& run, const LocalFile& file)
{
    return platform::derivedUuid(
        "com.stowline.upload.1",
        fmt::format("{}\n{}\n{}\n{}\n{}\n{}\n", run.session.username, run.systemName, file.size,
                    file.modified.time_since_epoch().count(), file.device, file.inode) +
            file.path + file.contentMark);
}

double randomFraction()
{
    static thread_local std::minstd_rand generator(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(generator);
}

std::uint64_t numberIn(const Dictionary& answer, std::string_view key)
{
    const std::string digits = platform::findText(answer, key);
    std::uint64_t number = 0;
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

/// Errors that stay the same however often one tries: what cannot be sent, and answers that are
/// not followed or too large.
bool isPermanent(const Error& error)
{
    if (error.domain == platform::kHttpErrorDomain)
        return error.code != static_cast<int>(platform::HttpFailure::connection);
    return error.localizedDescription().starts_with("The value ") ||
           error.localizedDescription().starts_with("The settings ") ||
           error.localizedDescription() == "Unable to create network stream";
}

UploadOutcome outcome(UploadOutcome::Kind kind, std::string sentence = {})
{
    return {.kind = kind, .sentence = std::move(sentence)};
}

std::pair<std::string, std::string> splitPath(const std::string& path)
{
    const auto slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

} // namespace

std::string FileUploader::uniqueKey() const
{
    return fmt::format("{};crc32={:08x}", entry_.guid, entry_.checksum);
}

UploadOutcome FileUploader::upload()
{
    for (int attempt = 1;; ++attempt) {
        hasChanged_ = false;
        UploadOutcome result = uploadOnce();
        result.wasResumed = wasResumed_;
        if (!hasChanged_)
            return result;
        run_.journal.remove(entry_.guid);
        const auto now = localFile(file_.path);
        if (!now)
            return outcome(Kind::failed, file_.path + " was deleted while it was sent.");
        if (attempt == kTriesOfAChangingFile)
            return outcome(Kind::temporary, file_.path + " keeps changing while it is sent. Please "
                                                         "back it up when it is not in use.");
        file_ = *now;
    }
}

UploadOutcome FileUploader::uploadOnce()
{
    try {
        const auto handle = platform::FileHandle::forReading(file_.path);
        if (!isUnchanged(handle)) {
            hasChanged_ = true;
            return {};
        }
        if (Failure failure = sendAndRegister(handle))
            return *failure;
        return outcome(Kind::stored);
    } catch (const platform::FileFault& fault) {
        return outcome(Kind::failed, std::string(fault.what()) + ".");
    }
}

FileUploader::Failure FileUploader::sendAndRegister(const platform::FileHandle& handle)
{
    entry_ = {.guid = guidFor(run_, file_),
              .username = run_.session.username,
              .systemName = run_.systemName,
              .file = file_};
    held_ = 0;
    isRegistered_ = false;
    if (const auto earlier = run_.journal.find(entry_.guid)) {
        wasResumed_ = true;
        entry_.sentBytes = earlier->sentBytes;
        entry_.parts = earlier->parts;
        entry_.checksum = earlier->checksum;
        if (Failure failure = askWhatIsHeld())
            return failure;
    }
    if (!isRegistered_) {
        if (!run_.journal.write(entry_))
            return outcome(Kind::failed, "The journal cannot be written. Is the disk full?");
        if (Failure failure = goOnFrom(handle, held_))
            return failure;
        if (Failure failure = sendParts(handle))
            return failure;
        if (!isRegistered_ && !isUnchanged(handle)) {
            hasChanged_ = true;
            return UploadOutcome{};
        }
        if (Failure failure = registerFile())
            return failure;
    }
    run_.journal.remove(entry_.guid);
    return std::nullopt;
}

bool FileUploader::isUnchanged(const platform::FileHandle& handle) const
{
    const auto now = platform::fileStatus(file_.path);
    return now && handle.isInPlace() && now->size == file_.size &&
           now->modified == file_.modified && now->inode == file_.inode &&
           now->device == file_.device;
}

FileUploader::Failure FileUploader::waitBeforeNextTry(Backoff& backoff,
                                                      const std::string& reason) const
{
    if (Interruptible::request())
        return outcome(Kind::interrupted);
    const auto pause = backoff.next();
    if (!pause)
        return outcome(Kind::temporary, fmt::format("{} is not stored: {} It was tried until the "
                                                    "time for it was used up.",
                                                    file_.path, reason));
    if (Interruptible::awaitRequest(*pause))
        return outcome(Kind::interrupted);
    return std::nullopt;
}

FileUploader::Failure FileUploader::takeAnswer(const Dictionary& answer)
{
    held_ = numberIn(answer, "X-ReceivedBytes");
    isRegistered_ = platform::findText(answer, "X-Registered") == "true";
    if (held_ > file_.size)
        return outcome(Kind::refused,
                       fmt::format("{} is not stored: the service says that it holds "
                                   "more bytes of it than it has.",
                                   file_.path));
    return std::nullopt;
}

FileUploader::Failure FileUploader::repeat(const Attempt& attempt,
                                           const std::string& whenRefused) const
{
    Backoff backoff(run_.budgetPerStep, std::chrono::steady_clock::now, randomFraction);
    for (int refusals = 0;;) {
        std::optional<Error> error;
        if (attempt(error))
            return std::nullopt;
        if (error && isPermanent(*error))
            return outcome(Kind::failed,
                           file_.path + " is not stored: " + error->localizedDescription());
        if (!error && ++refusals == kRefusalsTaken)
            return outcome(Kind::refused, file_.path + " is not stored: " + whenRefused);
        if (Failure failure = waitBeforeNextTry(backoff, error ? error->localizedDescription()
                                                               : "the service said no."))
            return failure;
    }
}

std::optional<Dictionary> FileUploader::answerAboutFile(ErrorSlot error) const
{
    return WebServiceBroker::getServerFileInfoForClientFilename(
        file_.path, entry_.guid, run_.session.username, run_.serverPath, run_.session.server,
        error);
}

FileUploader::Failure FileUploader::askWhatIsHeld()
{
    std::optional<Dictionary> answer;
    Failure failure = repeat(
        [&](std::optional<Error>& error) {
            answer = answerAboutFile(&error);
            return answer.has_value();
        },
        "the service does not say what it holds of it.");
    return failure ? failure : takeAnswer(*answer);
}

/// Sets place and checksum to what the service holds.
FileUploader::Failure FileUploader::goOnFrom(const platform::FileHandle& handle, std::uint64_t held)
{
    if (held == entry_.sentBytes)
        return std::nullopt;
    if (held < entry_.sentBytes) {
        entry_.sentBytes = 0;
        entry_.checksum = 0;
    }
    part_.resize(run_.partBytes);
    while (entry_.sentBytes < held) {
        const std::uint64_t wanted = std::min<std::uint64_t>(held - entry_.sentBytes, part_.size());
        const std::size_t count = handle.readAt(entry_.sentBytes, std::span(part_).first(wanted));
        if (count < wanted) {
            hasChanged_ = true;
            return UploadOutcome{};
        }
        entry_.checksum = Crc32::updateCRC32(entry_.checksum, part_.data(), count);
        entry_.sentBytes += count;
    }
    return std::nullopt;
}

FileUploader::Failure FileUploader::sendParts(const platform::FileHandle& handle)
{
    // A service that keeps losing what it held would otherwise be fed for ever.
    int stepsBack = 0;
    while (entry_.sentBytes < file_.size && !isRegistered_) {
        if (Interruptible::request())
            return outcome(Kind::interrupted);
        const std::uint64_t wanted =
            std::min(run_.bandwidth.partSize(run_.partBytes), file_.size - entry_.sentBytes);
        part_.resize(wanted);
        if (handle.readAt(entry_.sentBytes, part_) < wanted) {
            hasChanged_ = true;
            return UploadOutcome{};
        }
        if (Interruptible::awaitRequest(run_.bandwidth.reserve(wanted)))
            return outcome(Kind::interrupted);
        if (Failure failure = sendPart({part_.data(), part_.size()}))
            return failure;
        if (held_ == entry_.sentBytes + wanted) {
            entry_.checksum = Crc32::updateCRC32(entry_.checksum, part_.data(), part_.size());
            entry_.sentBytes = held_;
            ++entry_.parts;
            run_.sentBytes += wanted;
            ++run_.sentParts;
        } else {
            if (held_ <= entry_.sentBytes && ++stepsBack == kRefusalsTaken)
                return outcome(Kind::refused,
                               file_.path + " is not stored: the service loses what it is sent.");
            if (Failure failure = goOnFrom(handle, held_))
                return failure;
        }
        if (entry_.sentBytes < file_.size && !run_.journal.write(entry_))
            return outcome(Kind::failed, "The journal cannot be written. Is the disk full?");
    }
    return std::nullopt;
}

FileUploader::Failure FileUploader::sendPart(std::string_view bytes)
{
    const std::string identifier =
        fmt::format("{};offset={};crc32={:08x}", entry_.guid, entry_.sentBytes,
                    Crc32::updateCRC32(0, bytes.data(), bytes.size()));
    std::optional<Dictionary> answer;
    Failure failure = repeat(
        [&](std::optional<Error>& error) {
            answer = WebServiceBroker::uploadForUser(run_.session.username, bytes, file_.path,
                                                     bytes.size(), run_.session.server,
                                                     run_.serverPath, identifier, &error);
            return answer.has_value();
        },
        "the service does not take it. Is there room for it?");
    if (!failure)
        return takeAnswer(*answer);
    STOWLINE_LOG_ERROR("%@", WebServiceBroker::formatUploadErrorFromResponseDictionary(
                                 answer, identifier, "%@", failure->sentence));
    return failure;
}

bool FileUploader::registerOnce(ErrorSlot error) const
{
    const auto [folder, name] = splitPath(file_.path);
    const std::string remoteFolder = remotePath(folder.empty() ? "/" : folder);
    if (run_.registration == RegistrationMethod::protect2)
        return WebServiceBroker::protect2UploadedFileForUser(
            run_.session.username, run_.session.password, run_.session.server, remotePath(name),
            remoteFolder, file_.size, entry_.guid, file_.size, run_.serverPath, file_.modified,
            false, run_.systemName, 0, uniqueKey(), false, file_.size, -1, error);
    return WebServiceBroker::protectUploadedFileForUser(
        run_.session.username, run_.session.password, run_.session.server, run_.systemName,
        General::volumeNameFromPath(file_.path).value_or("disk"), remoteFolder, remotePath(name),
        entry_.guid, uniqueKey(), file_.modified, file_.size, run_.serverPath + entry_.guid, error);
}

FileUploader::Failure FileUploader::registerFile()
{
    if (isRegistered_)
        return std::nullopt;
    return repeat(
        [this](std::optional<Error>& error) {
            const auto start = std::chrono::steady_clock::now();
            const bool isDone = registerOnce(&error);
            const auto took = std::chrono::steady_clock::now() - start;
            run_.registrationMicroseconds += static_cast<std::uint64_t>(
                std::chrono::duration_cast<std::chrono::microseconds>(took).count());
            if (isDone)
                return true;
            // An answer may have been lost on its way.
            const auto answer = answerAboutFile(nullptr);
            return answer && platform::findText(*answer, "X-Registered") == "true";
        },
        "the service does not register it.");
}

} // namespace stowline::cli
