#include "stowline/backup/forget/GivenUpRuns.h"

#include "stowline/backup/record/StateFolder.h"
#include "stowline/platform/files/Files.h"

#include <sstream>

namespace stowline::backup {

namespace {

constexpr const char* kGivenUpFile = "given-up";

} // namespace

std::string nameOf(const OpenRun& run)
{
    return run.chain + "/" + std::to_string(run.run);
}

GivenUpRuns::GivenUpRuns(const std::filesystem::path& stateFolder, const Account& account)
    : file_(stateFolder / kGivenUpFile), service_(uploadOwner(account, {}).service),
      username_(account.username)
{
    std::istringstream text(platform::readRegularFile(file_).value_or(""));
    Word word;
    auto& [service, username, system, run, sign] = word;
    while (std::getline(text, service, '\0') && std::getline(text, username, '\0') &&
           std::getline(text, system, '\0') && std::getline(text, run, '\0') &&
           std::getline(text, sign, '\0'))
        words_.insert(word);
}

GivenUpRuns::Word GivenUpRuns::wordOf(const OpenRun& run) const
{
    return {service_, username_, run.systemName, nameOf(run),
            std::to_string(run.lastSign.value_or(0))};
}

bool GivenUpRuns::contains(const OpenRun& run) const
{
    return run.lastSign && words_.contains(wordOf(run));
}

bool GivenUpRuns::add(const OpenRun& run)
{
    words_.insert(wordOf(run));
    std::string text;
    for (const auto& [service, username, system, name, sign] : words_) {
        for (const std::string* part : {&service, &username, &system, &name, &sign})
            text += *part + '\0';
    }
    return platform::writeFileAtomically(file_, text);
}

} // namespace stowline::backup
