#include "stowline/backup/record/ServicePlace.h"

#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/transfer/FolderPages.h"
#include "stowline/backup/transfer/VersionDeletion.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/time/DateText.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>
#include <chrono>

namespace stowline::backup {

namespace {

using Kind = RecordFault::Kind;

template <class Number> Number numberIn(const Dictionary& entry, std::string_view key)
{
    return platform::wholeNumber<Number>(platform::findText(entry, key)).value_or(0);
}

Kind kindOf(StepEnd end)
{
    switch (end) {
    case StepEnd::temporary:
        return Kind::temporary;
    case StepEnd::refused:
        return Kind::refused;
    case StepEnd::interrupted:
        return Kind::interrupted;
    case StepEnd::failed:
        break;
    }
    return Kind::failed;
}

Kind kindOf(FetchFailure::Kind kind)
{
    switch (kind) {
    case FetchFailure::Kind::temporary:
        return Kind::temporary;
    case FetchFailure::Kind::refused:
        return Kind::refused;
    case FetchFailure::Kind::interrupted:
        return Kind::interrupted;
    case FetchFailure::Kind::missing:
    case FetchFailure::Kind::badContent:
        return Kind::damaged;
    default:
        return Kind::failed;
    }
}

Kind kindOf(UploadOutcome::Kind kind)
{
    switch (kind) {
    case UploadOutcome::Kind::temporary:
        return Kind::temporary;
    case UploadOutcome::Kind::refused:
        return Kind::refused;
    case UploadOutcome::Kind::interrupted:
        return Kind::interrupted;
    default:
        return Kind::failed;
    }
}

void require(const std::optional<StepFailure>& failure, const std::string& what)
{
    if (failure)
        throw RecordFault(kindOf(failure->end),
                          what + (failure->reason.empty() ? "." : ": " + failure->reason));
}

} // namespace

std::vector<std::string> systemNames(const Account& account, Tries& tries)
{
    std::optional<Array> systems;
    require(tries.repeat([&](std::optional<Error>& error) {
        systems = WebServiceBroker::getAccountSystemsForUsername(account.username, account.password,
                                                                 account.server, &error);
        return systems.has_value();
    }),
            "The machines of the account cannot be listed");
    std::vector<std::string> names;
    for (const Value& entry : *systems) {
        const Dictionary* fields = entry.dictionary();
        names.push_back(fields ? platform::findText(*fields, "SystemName") : entry.text());
    }
    return names;
}

std::vector<ServicePlace::Entry> ServicePlace::listed(const std::string& folder)
{
    std::vector<Entry> entries;
    require(forEachEntry(account_, tries_, folder,
                         [&entries](const Dictionary& fields) {
                             entries.push_back({{platform::findText(fields, "Name"),
                                                 numberIn<std::uint64_t>(fields, "Size"),
                                                 platform::findText(fields, "FileID")},
                                                platform::findText(fields, "IsFolder") == "true"});
                         }),
            "The records of the machine's runs cannot be listed");
    return entries;
}

std::vector<std::string> ServicePlace::chains()
{
    std::vector<std::string> names;
    const auto systems = systemNames(account_, tries_);
    if (std::ranges::find(systems, account_.systemName) == systems.end())
        return names;
    for (Entry& entry : listed(std::string(kRecordFolder))) {
        if (entry.isFolder)
            names.push_back(std::move(entry.file.name));
    }
    return names;
}

std::vector<RecordFile> ServicePlace::files(const std::string& chain)
{
    std::vector<RecordFile> files;
    for (Entry& entry : listed(std::string(kRecordFolder) + "/" + chain)) {
        if (!entry.isFolder)
            files.push_back(std::move(entry.file));
    }
    return files;
}

/// What a place has just stored is found by what a new listing says.
RecordFile ServicePlace::withId(const std::string& chain, const RecordFile& file)
{
    if (!file.id.empty())
        return file;
    for (RecordFile& listed : files(chain)) {
        if (listed.name == file.name)
            return std::move(listed);
    }
    return file;
}

Array ServicePlace::versionsOf(const RecordFile& file)
{
    std::optional<Array> versions;
    require(tries_.repeat([&](std::optional<Error>& error) {
        const auto id = platform::wholeNumber<std::int64_t>(file.id).value_or(0);
        versions = WebServiceBroker::getFileVersionsForUsername(
            account_.username, account_.password, account_.server, id, &error);
        return versions.has_value();
    }),
            "The record " + file.name + " cannot be asked about");
    return *versions;
}

/// A record is stored once under its name; should the service hold it twice, the later one counts.
Dictionary ServicePlace::newestVersion(const RecordFile& file)
{
    Dictionary newest;
    std::int64_t highest = -1;
    for (const Value& version : versionsOf(file)) {
        const Dictionary* fields = version.dictionary();
        const auto number = fields ? numberIn<std::int64_t>(*fields, "VersionID") : -1;
        if (number > highest) {
            highest = number;
            newest = *fields;
        }
    }
    if (platform::findText(newest, "VersionID").empty())
        throw RecordFault(Kind::damaged,
                          "The service has no version of the record " + file.name + ".");
    return newest;
}

void ServicePlace::get(const std::string& chain, const RecordFile& file,
                       const std::function<bool(std::string_view)>& take)
{
    const RecordFile found = withId(chain, file);
    const std::string version = platform::findText(newestVersion(found), "VersionID");
    const auto failure = source_.read(version, 0, found.size, take);
    if (failure && failure->kind != FetchFailure::Kind::notTaken)
        throw RecordFault(kindOf(failure->kind),
                          "The record " + file.name + " cannot be read: " + failure->reason);
}

/// "2026-01-31 23:59:59", universal time.
std::optional<std::int64_t> ServicePlace::storedAt(const std::string& chain, const RecordFile& file)
{
    std::string text = platform::findText(newestVersion(withId(chain, file)), "StoredAt") + "Z";
    std::ranges::replace(text, ' ', 'T');
    const auto moment = platform::dateFromInternetTimeText(text);
    if (!moment)
        return std::nullopt;
    return std::chrono::floor<std::chrono::seconds>(*moment).time_since_epoch().count();
}

void ServicePlace::remove(const std::string& chain, const RecordFile& file)
{
    const RecordFile found = withId(chain, file);
    const auto isThere = [&] {
        return std::ranges::any_of(
            files(chain), [&file](const RecordFile& listed) { return listed.name == file.name; });
    };
    if (!isThere())
        return;
    for (const Value& version : versionsOf(found)) {
        const Dictionary* fields = version.dictionary();
        const std::string list = fields ? platform::findText(*fields, "FileListID") : "";
        const auto failure = deletionOf(account_, list, tries_);
        if (failure && isThere())
            throw RecordFault(kindOf(failure->end),
                              "The record " + file.name + " is not deleted. " + failure->reason);
    }
    if (isThere())
        throw RecordFault(Kind::refused,
                          "The service did not delete the record " + file.name + ".");
}

void ServicePlace::put(const std::string& chain, const std::string& name,
                       const std::filesystem::path& file)
{
    if (uploads_ == nullptr)
        throw RecordFault(Kind::failed, "Records are only read here.");
    FileUploader uploader(*uploads_, {.path = file.string(),
                                      .remoteFolder = std::string(kRecordFolder) + "/" + chain,
                                      .remoteName = name,
                                      .open =
                                          [&file](int& error) {
                                              return platform::SourceFile::open(
                                                  platform::SourceFile::kNoFolder, file.string(),
                                                  error);
                                          },
                                      .isJournaled = false,
                                      .title = "The record of the run"});
    const UploadOutcome outcome = uploader.upload();
    if (outcome.kind != UploadOutcome::Kind::stored)
        throw RecordFault(kindOf(outcome.kind), outcome.sentence);
}

} // namespace stowline::backup
