#include "stowline/backup/transfer/ContentSource.h"

#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <deque>
#include <future>
#include <system_error>

namespace stowline::backup {

namespace {

using Kind = FetchFailure::Kind;

constexpr std::size_t kPartsOnTheirWay = 3;
/// A ticket or a part that does not fit may be bad luck; so many are none.
constexpr int kSpoiledTaken = 4;
/// The answers that a part comes in have their limit.
constexpr std::uint64_t kLargestPart = 32U << 20;

/// The service's code when it cannot read what it holds.
constexpr std::string_view kNotReadable = "ContentNotReadable";

Error passing(const std::string& sentence)
{
    return platform::makeError(std::string(kServiceErrorDomain), kServiceErrorCode, sentence);
}

FetchFailure failureOf(const StepFailure& step)
{
    switch (step.end) {
    case StepEnd::interrupted:
        return {Kind::interrupted, "It was interrupted."};
    case StepEnd::temporary:
        return {Kind::temporary, step.reason};
    case StepEnd::refused:
        return {Kind::refused, step.reason.empty()
                                   ? "The service gives out no content at the moment."
                                   : step.reason};
    case StepEnd::failed:
        break;
    }
    return {Kind::failed, step.reason};
}

} // namespace

std::optional<std::string> TicketKeeper::ticket(std::optional<Error>& error)
{
    const std::lock_guard lock(mutex_);
    if (!text_.empty() && now_() < renewAt_)
        return text_;
    const auto given = WebServiceBroker::restoreTicketForUsername(
        account_.username, account_.password, account_.server, &error);
    if (!given)
        return std::nullopt;
    text_ = given->text;
    // Before it ends, so that no part meets one that has just run out.
    renewAt_ = now_() + std::chrono::seconds(given->secondsToLive) * 4 / 5;
    return text_;
}

void TicketKeeper::drop(const std::string& ticket)
{
    const std::lock_guard lock(mutex_);
    if (text_ == ticket)
        text_.clear();
}

ContentSource::ContentSource(const Account& account, Tries& tries, BandwidthLimit& bandwidth,
                             std::uint64_t partBytes)
    : account_(account), tries_(tries), bandwidth_(bandwidth),
      partBytes_(std::clamp<std::uint64_t>(partBytes, 1, kLargestPart)),
      tickets_(account, std::chrono::steady_clock::now)
{
}

bool ContentSource::isOfOtherVersion(const FilePart& got, const Wanted& wanted)
{
    return got.versionSize != wanted.size ||
           (!wanted.digest.empty() && !got.versionDigest.empty() &&
            got.versionDigest != wanted.digest);
}

bool ContentSource::fetchOnce(const Wanted& wanted, Part& part, int& spoiled,
                              std::optional<Error>& error)
{
    const auto ticket = tickets_.ticket(error);
    if (!ticket)
        return false;
    FilePart got = WebServiceBroker::filePartForUsername(account_.username, *ticket, wanted.version,
                                                         wanted.offset, wanted.length,
                                                         account_.server, &error);
    switch (got.outcome) {
    case FilePartOutcome::read:
        // An answer to another question is bad luck, too, until it comes again and again.
        if (isOfOtherVersion(got, wanted) && ++spoiled < kSpoiledTaken) {
            error = passing("What the service sends is of another version");
            return false;
        }
        if (got.versionSize != wanted.size) {
            part.failure = {Kind::badContent,
                            "The service holds " + std::to_string(got.versionSize) +
                                " bytes of it instead of " + std::to_string(wanted.size) + "."};
            return true;
        }
        // A digest that is told wrongly is not a loss: the bytes have one of their own.
        part.bytes = std::move(got.bytes);
        return true;
    case FilePartOutcome::ticketRefused:
        tickets_.drop(*ticket);
        error = passing("The service does not accept its own ticket");
        if (++spoiled < kSpoiledTaken)
            return false;
        part.failure = {Kind::refused, "The service does not accept its own tickets."};
        return true;
    case FilePartOutcome::garbled:
        error = passing("What the service sends does not fit its checksum");
        if (++spoiled < kSpoiledTaken)
            return false;
        part.failure = {Kind::badContent,
                        "What the service sends does not fit its checksum, again and again."};
        return true;
    case FilePartOutcome::noSuchVersion:
        part.failure = {Kind::missing, "The service has no such version any more."};
        return true;
    case FilePartOutcome::contentMissing:
        part.failure = {Kind::missing, "The service has lost its content."};
        return true;
    case FilePartOutcome::contentDamaged:
        part.failure = {Kind::badContent, "Its content is damaged on the service."};
        return true;
    case FilePartOutcome::outOfRange:
        part.failure = {Kind::badContent, "The service holds fewer bytes of it than were stored."};
        return true;
    case FilePartOutcome::notConfigured:
        part.failure = {Kind::notConfigured,
                        error ? error->localizedDescription() : "Restoring is not configured."};
        return true;
    case FilePartOutcome::refused:
        // One that tells no reason, or that it cannot read just now, may do better later.
        if (got.reason.empty() || got.reason == kNotReadable)
            error = passing("The service gives the content out to nobody at the moment");
        return false;
    case FilePartOutcome::failed:
        break;
    }
    return false;
}

ContentSource::Part ContentSource::fetch(const Wanted& wanted)
{
    Part part;
    if (tries_.stop().waitFor(bandwidth_.reserve(wanted.length))) {
        part.failure = {Kind::interrupted, "It was interrupted."};
        return part;
    }
    int spoiled = 0;
    const auto failure = tries_.repeat(
        [&](std::optional<Error>& error) { return fetchOnce(wanted, part, spoiled, error); });
    if (failure)
        part.failure = failureOf(*failure);
    received_ += part.bytes.size();
    return part;
}

std::optional<FetchFailure> ContentSource::read(const std::string& version, std::uint64_t from,
                                                std::uint64_t size, const Take& take,
                                                const std::string& digest)
{
    const std::uint64_t partBytes = bandwidth_.partSize(partBytes_);
    std::deque<std::future<Part>> onTheirWay; // each is waited for when it goes
    std::uint64_t next = from;
    const auto sendFor = [&](std::launch how) {
        const std::uint64_t length = std::min(partBytes, size - next);
        const Wanted wanted{version, digest, size, next, length};
        onTheirWay.push_back(std::async(how, [this, wanted] { return fetch(wanted); }));
        next += length;
    };
    while (next < size || !onTheirWay.empty()) {
        while (next < size && onTheirWay.size() < kPartsOnTheirWay) {
            try {
                // What is the last one anyway needs no thread.
                const bool isAlone = onTheirWay.empty() && size - next <= partBytes;
                sendFor(isAlone ? std::launch::deferred : std::launch::async);
            } catch (const std::system_error&) { // no thread to be had
                sendFor(std::launch::deferred);
            }
        }
        const Part part = onTheirWay.front().get();
        onTheirWay.pop_front();
        if (part.failure)
            return part.failure;
        if (!take({reinterpret_cast<const char*>(part.bytes.data()), part.bytes.size()}))
            return FetchFailure{Kind::notTaken, {}};
    }
    return std::nullopt;
}

} // namespace stowline::backup
