#include "cli/shared/Successes.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/util/Crc32.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace stowline::cli {

namespace {

constexpr std::size_t kMostSubjects = 200;

/// A moment and whose it is; keys are empty in what an earlier version noted.
struct Success {
    Date moment;
    std::string account;
    std::string machine;
    std::string paths;
};

/// A name for a text of any bytes; none for an empty one. Texts of the same length and checksum are
/// taken for one: nobody gains anything by making them so.
std::string keyOf(const std::string& text)
{
    return text.empty() ? ""
                        : fmt::format("{:08x}-{}", Crc32::updateCRC32(0, text.data(), text.size()),
                                      text.size());
}

std::string keyOf(std::vector<std::string> paths)
{
    std::ranges::sort(paths);
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    std::string text;
    for (const std::string& path : paths)
        text += path + '\0';
    return keyOf(text);
}

std::vector<Success> successesIn(const std::filesystem::path& file)
{
    std::vector<Success> successes;
    std::istringstream lines(platform::readRegularFile(file).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string moment;
        Success success;
        words >> moment >> success.account >> success.machine >> success.paths;
        if (const auto date = platform::dateFromInternetTimeText(moment)) {
            success.moment = *date;
            successes.push_back(std::move(success));
        }
    }
    return successes;
}

bool matches(const std::string& key, const std::string& wanted)
{
    return wanted.empty() || key.empty() || key == wanted;
}

/// What stands for an empty key in a line, where words are counted.
std::string word(const std::string& key)
{
    return key.empty() ? "-" : key;
}

} // namespace

void noteSuccess(const std::filesystem::path& file, const BackupSubject& subject, Date moment)
{
    const Success now{moment, keyOf(subject.account), keyOf(subject.machine), keyOf(subject.paths)};
    auto successes = successesIn(file);
    std::erase_if(successes, [&now](const Success& other) {
        return other.account.empty() ||
               (other.account == word(now.account) && other.machine == word(now.machine) &&
                other.paths == word(now.paths));
    });
    successes.insert(successes.begin(), now);
    successes.resize(std::min(successes.size(), kMostSubjects));
    std::string text;
    for (const Success& success : successes)
        text += platform::internetTimeText(success.moment) + " " + word(success.account) + " " +
                word(success.machine) + " " + word(success.paths) + "\n";
    (void)platform::replaceFile(file, text);
}

std::optional<Date> successIn(const std::filesystem::path& file, const BackupSubject& subject)
{
    std::optional<Date> newest;
    for (const Success& success : successesIn(file)) {
        if (matches(success.account, keyOf(subject.account)) &&
            matches(success.machine, keyOf(subject.machine)) &&
            matches(success.paths, keyOf(subject.paths)) && (!newest || *newest < success.moment))
            newest = success.moment;
    }
    return newest;
}

} // namespace stowline::cli
