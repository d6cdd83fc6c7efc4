#include "stowline/backup/VerifyRun.h"

#include "stowline/backup/restore/RunReader.h"
#include "stowline/backup/restore/VersionFinder.h"
#include "stowline/platform/desktop/Sha256.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <future>
#include <map>
#include <mutex>
#include <random>

namespace stowline::backup {

namespace {

constexpr std::size_t kVersionsInACall = 500;

/// What is checked of a file.
struct Wanted {
    std::string path;
    std::uint64_t size = 0; ///< of the file
    StoredContent content;
};

using Answers = std::map<std::string, Dictionary>; ///< by version

template <class Number>
std::optional<Number> numberIn(const Dictionary& fields, std::string_view key, int base)
{
    const std::string digits = platform::findText(fields, key);
    Number number = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    if (digits.empty() || read.ec != std::errc() || read.ptr != digits.data() + digits.size())
        return std::nullopt;
    return number;
}

/// What the service's word of a version means; absent: it is whole.
std::optional<VerifyFinding> judged(const Wanted& wanted, const Dictionary* word)
{
    using Kind = VerifyFinding::Kind;
    const auto finding = [&wanted](Kind kind, const std::string& what) {
        return VerifyFinding{.kind = kind,
                             .path = wanted.path,
                             .firstRun = wanted.content.run,
                             .lastRun = 0,
                             .sentence = wanted.path + ": " + what};
    };
    if (word == nullptr)
        return finding(Kind::missing, "the service has no such version any more");
    const std::string state = platform::findText(*word, "State");
    if (state == "Missing")
        return finding(Kind::missing, "the service has lost its content");
    if (state == "Damaged")
        return finding(Kind::damaged, "the service says that its content is damaged");
    const auto storedSize = numberIn<std::uint64_t>(*word, "StoredSize", 10);
    const auto size = numberIn<std::uint64_t>(*word, "Size", 10);
    if (storedSize ? *storedSize != wanted.content.storedSize
                   : size.value_or(wanted.size) != wanted.size)
        return finding(Kind::damaged, "the service holds another size of it");
    const auto checksum = numberIn<std::uint32_t>(*word, "Checksum", 16);
    if (checksum && *checksum != wanted.content.checksum)
        return finding(Kind::damaged, "the service holds another checksum of it");
    const std::string digest = platform::findText(*word, "Digest");
    if (!digest.empty() && wanted.content.kind == "plain" && digest != wanted.content.digest)
        return finding(Kind::damaged, "the service holds another digest of it");
    return std::nullopt;
}

class Verify {
public:
    Verify(const VerifyRequest& request, VerifyObserver& observer, const StopRequest& stop)
        : request_(request), observer_(observer), stop_(stop)
    {
    }

    VerifySummary run()
    {
        const auto failure = failureOf([this] { verify(); });
        if (stop_.isRequested()) {
            summary_.end = ReadEnd::interrupted;
            summary_.sentence = "It was interrupted.";
        } else if (failure) {
            summary_.end = failure->end;
            summary_.sentence = failure->sentence;
        } else {
            judge();
        }
        return summary_;
    }

private:
    void verify()
    {
        RunReader reader(request_.choice, request_.bytesPerSecond, request_.partBytes, stop_);
        const OriginKeeper keeper(reader, summary_.origin);
        const RunReader::Tree tree = reader.readChosen();
        summary_.run = tree.head.run;
        versions_.emplace(request_.choice.account, reader.tries());
        std::vector<Wanted> batch;
        tree.items.forEach("/", [&](const StoredItem& stored) {
            files_ += stored.content ? 1 : 0;
            return true;
        });
        tree.items.forEach("/", [&](const StoredItem& stored) {
            if (stored.content)
                batch.push_back({stored.item.path, stored.item.size, *stored.content});
            if (batch.size() == kVersionsInACall) {
                check(reader, batch);
                batch.clear();
            }
            return !stop_.isRequested();
        });
        if (!batch.empty() && !stop_.isRequested())
            check(reader, batch);
    }

    void check(RunReader& reader, std::vector<Wanted>& batch)
    {
        std::erase_if(batch, [this](Wanted& wanted) { return !completeVersion(wanted); });
        const Answers answers = askedFor(reader, batch);
        std::vector<const Wanted*> toRead;
        for (const Wanted& wanted : batch) {
            const auto answer = answers.find(wanted.content.version);
            auto finding = judged(wanted, answer == answers.end() ? nullptr : &answer->second);
            if (finding)
                tell(std::move(*finding));
            else if (isChosen())
                toRead.push_back(&wanted);
            else
                pass(wanted, false);
        }
        readAll(reader, toRead);
    }

    /// Asks for a version that was never told. @return false: there is none, which is told
    bool completeVersion(Wanted& wanted)
    {
        const auto found = versions_->versionFor(wanted.path, wanted.content);
        wanted.content.version = found.version;
        if (!found.version.empty())
            return true;
        using Kind = VerifyFinding::Kind;
        tell({.kind = found.failure ? Kind::unknown : Kind::missing,
              .path = wanted.path,
              .firstRun = wanted.content.run,
              .sentence = wanted.path + (found.failure ? ": the service does not say which version "
                                                         "it is"
                                                       : ": the service has no such version any "
                                                         "more")});
        return false;
    }

    Answers askedFor(RunReader& reader, const std::vector<Wanted>& batch)
    {
        std::string numbers;
        for (const Wanted& wanted : batch) {
            numbers += (numbers.empty() ? "" : ",") + wanted.content.version;
        }
        const Account& account = request_.choice.account;
        std::optional<Value> answer;
        const auto failure = reader.tries().repeat([&](std::optional<Error>& error) {
            answer = WebServiceBroker::getMetaDataAboutFilesToRecoverForFileVersion(
                numbers, account.username, account.server, "", &error);
            return answer && answer->dictionary();
        });
        if (failure)
            throw RecordFault(failure->end == StepEnd::interrupted ? RecordFault::Kind::interrupted
                                                                   : RecordFault::Kind::temporary,
                              "The service cannot be asked after the versions: " + failure->reason);
        Answers answers;
        const auto files = platform::valueAtKeyPath(*answer, "files.FileMetaData");
        const Array list = !files ? Array() : files->array() ? *files->array() : Array{*files};
        for (const Value& file : list) {
            if (const Dictionary* fields = file.dictionary())
                answers.emplace(platform::findText(*fields, "VersionID"), *fields);
        }
        return answers;
    }

    [[nodiscard]] bool isChosen()
    {
        return std::uniform_real_distribution<double>(0, 1)(random_) < request_.fractionRead;
    }

    void readAll(RunReader& reader, const std::vector<const Wanted*>& files)
    {
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t at = next++; at < files.size() && !stop_.isRequested(); at = next++)
                readOne(reader.source(), *files[at]);
        };
        std::vector<std::future<void>> workers;
        for (std::size_t i = 1; i < std::min(request_.jobs, files.size()); ++i)
            workers.push_back(std::async(std::launch::async, work));
        work();
        for (auto& worker : workers)
            worker.get();
    }

    void readOne(ContentSource& source, const Wanted& wanted)
    {
        platform::Sha256 digest;
        const auto failure = source.read(wanted.content.version, 0, wanted.content.storedSize,
                                         [&digest](std::string_view bytes) {
                                             digest.update(bytes);
                                             return true;
                                         });
        if (stop_.isRequested())
            return;
        VerifyFinding finding{.kind = VerifyFinding::Kind::unknown,
                              .path = wanted.path,
                              .firstRun = wanted.content.run};
        if (failure) {
            if (failure->kind == FetchFailure::Kind::badContent)
                finding.kind = VerifyFinding::Kind::damaged;
            finding.sentence = wanted.path + ": " + failure->reason;
        } else if (wanted.content.kind == "plain" &&
                   digest.hexadecimal() != wanted.content.digest) {
            finding.kind = VerifyFinding::Kind::damaged;
            finding.sentence = wanted.path + ": its bytes are not those that were stored";
        } else {
            return pass(wanted, true);
        }
        tell(std::move(finding));
    }

    void pass(const Wanted& wanted, bool wasRead)
    {
        const std::lock_guard lock(mutex_);
        ++summary_.checked;
        summary_.read += wasRead ? 1 : 0;
        summary_.bytes += wanted.content.storedSize;
        observer_.progress(summary_.checked, files_);
    }

    void tell(VerifyFinding finding)
    {
        const std::lock_guard lock(mutex_);
        finding.lastRun = summary_.run;
        if (finding.sentence.ends_with('.'))
            finding.sentence.pop_back();
        finding.sentence +=
            finding.firstRun == finding.lastRun
                ? fmt::format(" (of run {}).", finding.lastRun)
                : fmt::format(" (of the runs from {} to {}).", finding.firstRun, finding.lastRun);
        switch (finding.kind) {
        case VerifyFinding::Kind::missing:
            ++summary_.missing;
            break;
        case VerifyFinding::Kind::damaged:
            ++summary_.damaged;
            break;
        case VerifyFinding::Kind::unknown:
            ++summary_.unknown;
            break;
        }
        summary_.checked += finding.kind == VerifyFinding::Kind::unknown ? 0 : 1;
        observer_.found(finding);
        observer_.progress(summary_.checked, files_);
    }

    void judge()
    {
        const VerifySummary& sum = summary_;
        if (sum.checked + sum.unknown != files_) {
            summary_.end = ReadEnd::failed;
            summary_.sentence =
                fmt::format("Of {} files only {} were checked.", files_, sum.checked + sum.unknown);
        } else if (sum.missing + sum.damaged > 0) {
            summary_.end = ReadEnd::badContent;
            summary_.sentence = fmt::format("Of {} files {} are missing and {} damaged.", files_,
                                            sum.missing, sum.damaged);
        } else if (sum.unknown > 0) {
            summary_.end = ReadEnd::someFailed;
            summary_.sentence = fmt::format("{} files could not be checked.", sum.unknown);
        } else {
            summary_.end = ReadEnd::done;
        }
    }

    const VerifyRequest& request_;
    VerifyObserver& observer_;
    const StopRequest& stop_;
    std::minstd_rand random_{std::random_device{}()};
    std::uint64_t files_ = 0;
    std::optional<VersionFinder> versions_;

    std::mutex mutex_; ///< of the summary
    VerifySummary summary_;
};

} // namespace

const char* nameOf(VerifyFinding::Kind kind)
{
    switch (kind) {
    case VerifyFinding::Kind::missing:
        return "missing";
    case VerifyFinding::Kind::damaged:
        return "damaged";
    case VerifyFinding::Kind::unknown:
        break;
    }
    return "unknown";
}

VerifySummary runVerify(const VerifyRequest& request, VerifyObserver& observer,
                        const StopRequest& stop) noexcept
{
    Verify verify(request, observer, stop);
    return verify.run();
}

} // namespace stowline::backup
