#include "stowline/backup/transfer/VersionCheck.h"

#include "stowline/backup/tree/ItemRecord.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/FailureWatch.h"
#include "stowline/service/RemoteName.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <map>

namespace stowline::backup {

namespace {

using Kind = VersionVerdict::Kind;
using Answers = std::map<std::string, Dictionary>; ///< by version

constexpr std::size_t kVersionsInACall = 500;

/// Whether a number that is told is this one; what is not a number never is.
template <class Number> bool isOrUntold(const std::string& digits, Number wanted, int base = 10)
{
    return digits.empty() || platform::wholeNumber<Number>(digits, base) == wanted;
}

/// One of the two registrations takes backslashes for slashes.
std::string withSlashes(std::string path)
{
    std::ranges::replace(path, '\\', '/');
    return path;
}

bool isAtItsPlace(const StoredVersion& stored, const Dictionary& word)
{
    const std::string name = platform::findText(word, "Name");
    const std::string folder = platform::findText(word, "Path");
    return (name.empty() || name == remotePath(nameOf(stored.path))) &&
           (folder.empty() ||
            withSlashes(folder) == withSlashes(remotePath(parentOf(stored.path))));
}

/// What the service tells otherwise than it was stored; empty: nothing.
std::string differenceOf(const StoredVersion& stored, const Dictionary& word)
{
    const StoredContent& content = stored.content;
    if (!isOrUntold(platform::findText(word, "StoredSize"), content.storedSize) ||
        !isOrUntold(platform::findText(word, "Size"), stored.size))
        return "the service has a different size for it";
    if (!isOrUntold(platform::findText(word, "Checksum"), content.checksum, 16))
        return "the service has a different checksum for it";
    const std::string digest = platform::findText(word, "Digest");
    const bool tellsDigest = !digest.empty() && content.kind == "plain";
    if (tellsDigest && digest != content.digest)
        return "the service has a different digest for it";
    // A name of a hard link may have the content that was sent under another one.
    if (!tellsDigest && !isAtItsPlace(stored, word))
        return "the service holds another file under the number of its version";
    return {};
}

/// Anything but versions, or the plain word that there are none, says nothing about them.
bool isAnswer(const Value& value)
{
    const Dictionary* fields = value.dictionary();
    return fields && (platform::valueAtKeyPath(value, "files.FileMetaData") ||
                      platform::findText(*fields, "Code") == "NoSuchVersion");
}

void take(const Value& answer, Answers& answers)
{
    const auto files = platform::valueAtKeyPath(answer, "files.FileMetaData");
    const Array list = !files ? Array() : files->array() ? *files->array() : Array{*files};
    for (const Value& file : list) {
        if (const Dictionary* fields = file.dictionary())
            answers.emplace(platform::findText(*fields, "VersionID"), *fields);
    }
}

std::string numbersOf(std::span<const StoredVersion> versions)
{
    std::string numbers;
    for (const StoredVersion& stored : versions)
        numbers += (numbers.empty() ? "" : ",") + stored.content.version;
    return numbers;
}

} // namespace

bool isVersionNumber(std::string_view text)
{
    return platform::wholeNumber<std::int64_t>(text).value_or(0) > 0 && text[0] != '0';
}

VersionVerdict judged(const StoredVersion& stored, const Dictionary* word)
{
    using Identity = VersionVerdict::Identity;
    if (word == nullptr)
        return {Kind::missing, "the service has no such version any more", Identity::none};
    const std::string difference = differenceOf(stored, *word);
    const Identity identity = difference.empty() ? Identity::same : Identity::other;
    const std::string state = platform::findText(*word, "State");
    if (state == "Missing")
        return {Kind::missing, "the service has lost its content", identity};
    if (state == "Damaged")
        return {Kind::damaged, "the service says that its content is damaged", identity};
    if (!difference.empty())
        return {Kind::damaged, difference, identity};
    if (state != "Whole")
        return {Kind::untold, "the service does not say that its content is whole", identity};
    return {};
}

std::optional<std::vector<VersionVerdict>> askedAfter(const Account& account,
                                                      std::span<const StoredVersion> versions,
                                                      Tries& tries,
                                                      std::optional<StepFailure>& failure)
{
    std::vector<VersionVerdict> verdicts;
    verdicts.reserve(versions.size());
    while (!versions.empty()) {
        const auto some = versions.first(std::min(kVersionsInACall, versions.size()));
        versions = versions.subspan(some.size());
        std::optional<Value> answer;
        failure = tries.repeat([&](std::optional<Error>& error) {
            const FailureWatch watch;
            answer = WebServiceBroker::getMetaDataAboutFilesToRecoverForFileVersion(
                numbersOf(some), account.username, account.server, "", &error);
            error = watch.failure();
            return answer && isAnswer(*answer);
        });
        if (failure) {
            if (failure->reason.empty())
                failure->reason = "Its answer says nothing of them. Please try again later; if it "
                                  "stays so, ask whoever runs the service.";
            return std::nullopt;
        }
        Answers answers;
        take(*answer, answers);
        for (const StoredVersion& stored : some) {
            const auto found = answers.find(stored.content.version);
            verdicts.push_back(judged(stored, found == answers.end() ? nullptr : &found->second));
        }
    }
    return verdicts;
}

} // namespace stowline::backup
