#include "stowline/backup/transfer/FileUploader.h"

#include "stowline/backup/transfer/VersionCheck.h"
#include "stowline/logging/LogMacros.h"
#include "stowline/platform/desktop/MachineIdentity.h"
#include "stowline/platform/files/TargetFolder.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/SystemErrorText.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/Date.h"
#include "stowline/service/PartHeaders.h"
#include "stowline/service/WebServiceBroker.h"
#include "stowline/util/Crc32.h"
#include "stowline/util/General.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>

namespace stowline::backup {

namespace {

constexpr int kStepsBackTaken = 3; ///< of a service that loses what it held
constexpr std::size_t kReadingPiece = 1U << 20;

std::uint64_t numberIn(const Dictionary& answer, std::string_view key)
{
    return platform::wholeNumber<std::uint64_t>(platform::findText(answer, key)).value_or(0);
}

Date dateOf(const platform::StatusTime& time)
{
    return Date(std::chrono::seconds(time.seconds)) +
           std::chrono::floor<Date::duration>(std::chrono::nanoseconds(time.nanoseconds));
}

std::string newGuid()
{
    auto guid = platform::randomUuid();
    if (!guid)
        throw std::bad_alloc(); // a system without randomness has other needs too
    return *guid;
}

} // namespace

Timestamp timestampNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    return {.seconds = seconds.count(),
            .nanoseconds = static_cast<std::uint32_t>(
                std::chrono::duration_cast<std::chrono::nanoseconds>(now - seconds).count())};
}

std::optional<ContentReading> readContent(const platform::SourceFile& file, const StopRequest& stop)
{
    ContentReading reading{.digest = {}, .began = timestampNow()};
    const auto before = file.state();
    platform::Sha256 digest;
    std::vector<char> room(kReadingPiece);
    for (std::uint64_t at = 0;;) {
        int error = 0;
        const auto count =
            stop.isRequested() ? std::nullopt : file.readAt(at, std::span(room), error);
        if (!count)
            return std::nullopt;
        if (*count == 0)
            break;
        // One that grows faster than it is read would never end.
        if (before && at >= before->size)
            return std::nullopt;
        digest.update({room.data(), *count});
        reading.checksum = Crc32::updateCRC32(reading.checksum, room.data(), *count);
        at += *count;
    }
    const auto after = file.state();
    if (!before || before != after)
        return std::nullopt;
    reading.state = *before;
    reading.digest = digest.hexadecimal();
    return reading;
}

UploadOutcome FileUploader::outcome(Kind kind, const std::string& why) const
{
    UploadOutcome result;
    result.kind = kind;
    const std::string& name = subject_.title.empty() ? subject_.path : subject_.title;
    result.sentence = why.empty() ? std::string() : name + " is not stored: " + why;
    result.wasResumed = wasResumed_;
    return result;
}

UploadOutcome FileUploader::outcomeOf(int systemError) const
{
    if (systemError == ENOENT)
        return outcome(Kind::vanished, "it is not there any more.");
    if (systemError == EINVAL || systemError == ELOOP || systemError == ENOTDIR)
        return outcome(Kind::vanished, "it is not a regular file any more.");
    return outcome(Kind::failed,
                   "it cannot be read: " + platform::systemErrorText(systemError) + ".");
}

std::optional<UploadOutcome> FileUploader::failureOf(const std::optional<StepFailure>& failure,
                                                     const std::string& whenRefused) const
{
    if (!failure)
        return std::nullopt;
    switch (failure->end) {
    case StepEnd::interrupted:
        return outcome(Kind::interrupted);
    case StepEnd::refused:
        return outcome(Kind::refused, whenRefused);
    case StepEnd::temporary:
        return outcome(Kind::temporary, failure->reason);
    case StepEnd::failed:
        break;
    }
    return outcome(Kind::failed, failure->reason);
}

UploadOutcome FileUploader::upload()
{
    int error = 0;
    const auto file = subject_.open(error);
    if (!file)
        return outcomeOf(error);
    Ending ending = uploadOpened(*file);
    if (auto* ended = std::get_if<UploadOutcome>(&ending))
        return std::move(*ended);
    context_.journal.remove(context_.owner, subject_.path);
    return uploadChanging();
}

FileUploader::Ending FileUploader::uploadOpened(const platform::SourceFile& file)
{
    const auto state = file.state();
    if (!state)
        return outcomeOf(EIO);
    begin(*state);
    if (Failure failure = sendAll(file, subject_.isJournaled))
        return *failure;
    return storedOutcome();
}

/// Sends a copy of what the file holds at one moment.
UploadOutcome FileUploader::uploadChanging()
{
    int error = 0;
    const auto file = subject_.open(error);
    const auto before = file ? file->state() : std::nullopt;
    if (!before)
        return outcomeOf(error);
    const Timestamp began = timestampNow();
    const auto copy = file->copyAside(
        context_.spoolFolder, [this] { return !context_.tries.stop().isRequested(); }, error);
    if (context_.tries.stop().isRequested())
        return outcome(Kind::interrupted);
    // Without room for a copy the file itself is sent once more, as it comes.
    const platform::SourceFile& source = copy ? *copy : *file;
    const auto size = source.state();
    if (!size)
        return outcomeOf(EIO);
    begin(*before);
    wasResumed_ = false;
    entry_.state.size = size->size;
    readBegan_ = began;
    if (!copy && file->state() == before && requireEnd(*file))
        return outcome(Kind::failed, "it holds more than its size says, and there is no room for a "
                                     "copy of it.");
    const bool changedInCopying = copy && file->state() != before;
    const Failure failure = sendAll(source, false);
    if (const auto* ended = failure ? std::get_if<UploadOutcome>(&*failure) : nullptr)
        return *ended;
    const bool changedInSending = failure.has_value();
    if (changedInSending && !isRegistered_) {
        // It cannot be had in one state; what was read is better than nothing.
        if (entry_.sentBytes < entry_.state.size)
            return outcome(Kind::temporary, "it keeps changing while it is sent, and there is no "
                                            "room for a copy of it.");
        if (auto refused = registerFile())
            return *refused;
    }
    UploadOutcome result = storedOutcome();
    result.changedWhileRead = changedInCopying || changedInSending;
    return result;
}

void FileUploader::begin(const platform::FileState& state)
{
    entry_ = {.guid = newGuid(),
              .owner = context_.owner,
              .path = subject_.path,
              .state = state,
              .sentBytes = 0,
              .parts = 0,
              .checksum = 0};
    digest_ = platform::Sha256();
    readBegan_ = timestampNow();
    held_ = 0;
    isRegistered_ = false;
    stepsBack_ = 0;
}

void FileUploader::take(std::string_view bytes)
{
    entry_.checksum = Crc32::updateCRC32(entry_.checksum, bytes.data(), bytes.size());
    digest_.update(bytes);
    entry_.sentBytes += bytes.size();
}

UploadOutcome FileUploader::storedOutcome()
{
    UploadOutcome result = outcome(Kind::stored);
    result.content = {.version = version_,
                      .list = list_,
                      .digest = digest_.hexadecimal(),
                      .checksum = entry_.checksum,
                      .storedSize = entry_.state.size,
                      .run = context_.run};
    result.state = entry_.state;
    result.readBegan = readBegan_;
    return result;
}

FileUploader::Failure FileUploader::writeJournal()
{
    int error = 0;
    if (context_.journal.write(entry_, error))
        return std::nullopt;
    return outcome(Kind::failed, "The journal of uploads cannot be written: " +
                                     platform::systemErrorText(error) + ".");
}

FileUploader::Failure FileUploader::sendAll(const platform::SourceFile& file, bool isJournaled)
{
    if (isJournaled) {
        if (Failure failure = goOnWithEarlier(file))
            return failure;
        if (Failure failure = writeJournal())
            return failure;
    }
    if (Failure failure = sendParts(file, isJournaled))
        return failure;
    return registerFile();
}

/// Takes up what an earlier run began of this very state of the file.
FileUploader::Failure FileUploader::goOnWithEarlier(const platform::SourceFile& file)
{
    const auto earlier = context_.journal.find(context_.owner, subject_.path);
    if (!earlier || !isSameState(earlier->state, entry_.state) ||
        earlier->sentBytes > entry_.state.size)
        return std::nullopt;
    const std::string fresh = std::exchange(entry_.guid, earlier->guid);
    if (Failure failure = askWhatIsHeld())
        return failure;
    if (Failure failure = readUpTo(file, earlier->sentBytes))
        return failure;
    // Writes through a memory map may leave no stamp.
    if (entry_.checksum != earlier->checksum) {
        const platform::FileState state = entry_.state;
        begin(state);
        entry_.guid = fresh;
        return std::nullopt;
    }
    wasResumed_ = true;
    entry_.parts = earlier->parts;
    return readUpTo(file, isRegistered_ ? entry_.state.size : held_);
}

FileUploader::Failure FileUploader::readPart(const platform::SourceFile& file, std::uint64_t wanted)
{
    part_.resize(wanted);
    int error = 0;
    const auto count = file.readAt(entry_.sentBytes, part_, error);
    if (!count)
        return outcomeOf(error);
    if (*count < wanted)
        return Changed();
    return std::nullopt;
}

/// A file may hold more than its size says: the pseudo files of a kernel do.
FileUploader::Failure FileUploader::requireEnd(const platform::SourceFile& file) const
{
    char more = 0;
    int error = 0;
    const auto count = file.readAt(entry_.state.size, {&more, 1}, error);
    if (!count)
        return outcomeOf(error);
    return *count == 0 ? Failure() : Changed();
}

/// Sets place, checksum and digest to what the service holds.
FileUploader::Failure FileUploader::readUpTo(const platform::SourceFile& file, std::uint64_t place)
{
    if (place < entry_.sentBytes) {
        entry_.sentBytes = 0;
        entry_.checksum = 0;
        digest_ = platform::Sha256();
    }
    while (entry_.sentBytes < place) {
        if (context_.tries.stop().isRequested())
            return outcome(Kind::interrupted);
        if (Failure failure =
                readPart(file, std::min<std::uint64_t>(place - entry_.sentBytes, kReadingPiece)))
            return failure;
        take({part_.data(), part_.size()});
    }
    return std::nullopt;
}

FileUploader::Failure FileUploader::sendParts(const platform::SourceFile& file, bool isJournaled)
{
    const auto opened = file.state();
    while (entry_.sentBytes < entry_.state.size && !isRegistered_) {
        const std::uint64_t wanted = std::min(context_.bandwidth.partSize(context_.partBytes),
                                              entry_.state.size - entry_.sentBytes);
        if (Failure failure = readPart(file, wanted))
            return failure;
        if (context_.tries.stop().waitFor(context_.bandwidth.reserve(wanted)))
            return outcome(Kind::interrupted);
        if (Failure failure = sendPart({part_.data(), part_.size()}))
            return failure;
        if (Failure failure = takeConfirmation(file, wanted))
            return failure;
        if (isJournaled && entry_.sentBytes < entry_.state.size) {
            if (Failure failure = writeJournal())
                return failure;
        }
        if (isJournaled && file.state() != opened)
            break;
    }
    const auto now = file.state();
    if (now != opened || (isJournaled && (!now || !isSameState(*now, entry_.state))))
        return Changed();
    return isJournaled ? requireEnd(file) : std::nullopt;
}

/// Notes that a part has arrived, or goes where the service says that it is.
FileUploader::Failure FileUploader::takeConfirmation(const platform::SourceFile& file,
                                                     std::uint64_t sent)
{
    if (held_ == entry_.sentBytes + sent) {
        take({part_.data(), part_.size()});
        ++entry_.parts;
        context_.sentBytes += sent;
        ++context_.sentParts;
        return std::nullopt;
    }
    // A service that keeps losing what it held would otherwise be fed for ever.
    if (held_ <= entry_.sentBytes && ++stepsBack_ == kStepsBackTaken)
        return outcome(Kind::refused, "the service loses what it is sent.");
    return readUpTo(file, held_);
}

/// Sends a part, and once more where it may have been refused for want of a ticket that is good.
std::optional<Dictionary> FileUploader::answerToPart(std::string_view bytes,
                                                     const std::string& identifier,
                                                     std::optional<Error>& error) const
{
    for (bool isLast = !context_.tickets;; isLast = true) {
        std::string ticket;
        if (context_.needsTicket) {
            const auto given = context_.tickets->ticket(error);
            if (!given)
                return std::nullopt;
            ticket = *given;
        }
        auto answer = WebServiceBroker::uploadForUser(
            context_.account.username, bytes, subject_.path, bytes.size(), context_.account.server,
            context_.serverPath, identifier, &error, ticket);
        if (answer || error || isLast)
            return answer;
        if (!ticket.empty())
            context_.tickets->drop(ticket);
        context_.needsTicket = true;
    }
}

FileUploader::Failure FileUploader::sendPart(std::string_view bytes)
{
    const std::string identifier =
        fmt::format("{};offset={};crc32={:08x}", entry_.guid, entry_.sentBytes,
                    Crc32::updateCRC32(0, bytes.data(), bytes.size()));
    std::optional<Dictionary> answer;
    auto failure = failureOf(context_.tries.repeat([&](std::optional<Error>& error) {
        answer = answerToPart(bytes, identifier, error);
        return isAboutThisFile(answer, error);
    }),
                             "the service does not take it. Is the account full?");
    if (!failure)
        return takeAnswer(*answer);
    STOWLINE_LOG_ERROR("%@", WebServiceBroker::formatUploadErrorFromResponseDictionary(
                                 answer, identifier, "%@", failure->sentence));
    return failure;
}

std::optional<Dictionary> FileUploader::answerAboutFile(std::optional<Error>& error) const
{
    auto answer = WebServiceBroker::getServerFileInfoForClientFilename(
        subject_.path, entry_.guid, context_.account.username, context_.serverPath,
        context_.account.server, &error);
    return isAboutThisFile(answer, error) ? answer : std::nullopt;
}

/// Whether there is an answer, the place on the server that it names, if any, is not that of
/// another upload (a proxy that mixes answers up must not make a file count as stored), and it does
/// not call registered what is not there as a whole.
bool FileUploader::isAboutThisFile(const std::optional<Dictionary>& answer,
                                   std::optional<Error>& error) const
{
    if (!answer)
        return false;
    const std::string place = platform::findText(*answer, partHeader::serverPath);
    const std::string last = place.substr(place.rfind('/') + 1);
    const bool isOfAnother = last != entry_.guid && platform::isUuid(last);
    const auto held = platform::wholeNumber<std::uint64_t>(
        platform::findText(*answer, partHeader::receivedBytes));
    const bool isHalf = platform::findText(*answer, partHeader::registered) == "true" && held &&
                        *held < entry_.state.size;
    if (!isOfAnother && !isHalf)
        return true;
    error = platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode,
                                isOfAnother
                                    ? "The answer of the backup server is about another file."
                                    : "The backup server says that the file is registered, but not "
                                      "that it holds all of it.",
                                FailureKind::unreadableAnswer);
    return false;
}

FileUploader::Failure FileUploader::askWhatIsHeld()
{
    std::optional<Dictionary> answer;
    auto failure = failureOf(context_.tries.repeat([&](std::optional<Error>& error) {
        answer = answerAboutFile(error);
        return answer.has_value();
    }),
                             "the service does not say what it holds of it.");
    if (failure)
        return *failure;
    return takeAnswer(*answer);
}

FileUploader::Failure FileUploader::takeAnswer(const Dictionary& answer)
{
    held_ = numberIn(answer, partHeader::receivedBytes);
    isRegistered_ = platform::findText(answer, partHeader::registered) == "true";
    takeVersion(answer);
    if (held_ > entry_.state.size)
        return outcome(Kind::refused,
                       "the service says that it holds more bytes of it than it has.");
    return std::nullopt;
}

bool FileUploader::registerOnce(ErrorSlot error) const
{
    const Account& account = context_.account;
    const std::uint64_t size = entry_.state.size;
    const Date date = dateOf(entry_.state.modified);
    const std::string key = fmt::format("{};crc32={:08x}", entry_.guid, entry_.checksum);
    if (context_.registration == Registration::protect2)
        return WebServiceBroker::protect2UploadedFileForUser(
            account.username, account.password, account.server, subject_.remoteName,
            subject_.remoteFolder, size, entry_.guid, size, context_.serverPath, date, false,
            account.systemName, 0, key, false, size, -1, error);
    return WebServiceBroker::protectUploadedFileForUser(
        account.username, account.password, account.server, account.systemName,
        General::volumeNameFromPath(subject_.path).value_or("disk"), subject_.remoteFolder,
        subject_.remoteName, entry_.guid, key, date, size, context_.serverPath + entry_.guid,
        error);
}

bool FileUploader::registerInTime(ErrorSlot error) const
{
    const auto start = std::chrono::steady_clock::now();
    const bool isDone = registerOnce(error);
    const auto took = std::chrono::steady_clock::now() - start;
    context_.registrationMicroseconds += static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(took).count());
    return isDone;
}

/// One try to have it registered. A yes is believed when a question after it does not deny it.
bool FileUploader::haveRegistered(bool& isAccepted, std::optional<Error>& error)
{
    isAccepted = isAccepted || registerInTime(&error);
    if (isAccepted && !context_.answersQuestions)
        return true;
    std::optional<Error> unanswered;
    const auto answer = answerAboutFile(unanswered);
    if (!answer) {
        if (isAccepted)
            error = unanswered;
        return false;
    }
    takeVersion(*answer);
    const std::string isThere = platform::findText(*answer, partHeader::registered);
    if (isThere.empty()) {
        context_.answersQuestions = context_.hasToldVersions.load();
        return isAccepted;
    }
    if (isAccepted)
        error.reset();              // a no to what it said yes to
    isAccepted = isThere == "true"; // an answer may have been lost on its way
    return isAccepted;
}

/// Registers it, and asks under which numbers it can be had.
std::optional<UploadOutcome> FileUploader::registerFile()
{
    bool isAccepted = isRegistered_;
    if (isRegistered_ && !version_.empty())
        return std::nullopt;
    const auto failure = context_.tries.repeat(
        [&](std::optional<Error>& error) { return haveRegistered(isAccepted, error); });
    const bool isAnswered =
        !failure || (failure->end != StepEnd::refused && failure->end != StepEnd::failed);
    if (!isAnswered && isAccepted && !context_.hasToldVersions)
        context_.answersQuestions = false; // it has said yes, and is none that is asked
    else if (failure)
        return failureOf(failure, isAccepted ? "the service does not say that it is registered."
                                             : "the service does not register it.");
    isRegistered_ = true;
    return std::nullopt;
}

void FileUploader::takeVersion(const Dictionary& answer)
{
    version_ = platform::findText(answer, partHeader::versionId);
    list_ = platform::findText(answer, partHeader::listId);
    if (isVersionNumber(version_)) {
        context_.hasToldVersions = true;
    } else {
        version_.clear();
        list_.clear();
    }
}

} // namespace stowline::backup
