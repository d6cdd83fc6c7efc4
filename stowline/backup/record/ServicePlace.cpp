#include "stowline/backup/record/ServicePlace.h"

#include "stowline/backup/record/RecordFault.h"
#include "stowline/backup/transfer/FolderPages.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"
#include "stowline/service/WebServiceBroker.h"

#include <algorithm>

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

bool ServicePlace::isSystemKnown()
{
    std::optional<Array> systems;
    require(tries_.repeat([&](std::optional<Error>& error) {
        systems = WebServiceBroker::getAccountSystemsForUsername(
            account_.username, account_.password, account_.server, &error);
        return systems.has_value();
    }),
            "The machines of the account cannot be listed");
    return std::ranges::any_of(*systems, [this](const Value& entry) {
        const Dictionary* fields = entry.dictionary();
        return (fields ? platform::findText(*fields, "SystemName") : entry.text()) ==
               account_.systemName;
    });
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
    if (!isSystemKnown())
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

/// A record is stored once under its name; should the service hold it twice, the later one counts.
std::string ServicePlace::newestVersion(const RecordFile& file)
{
    std::optional<Array> versions;
    require(tries_.repeat([&](std::optional<Error>& error) {
        const auto id = platform::wholeNumber<std::int64_t>(file.id).value_or(0);
        versions = WebServiceBroker::getFileVersionsForUsername(
            account_.username, account_.password, account_.server, id, &error);
        return versions.has_value();
    }),
            "The record " + file.name + " cannot be asked about");
    std::string newest;
    std::int64_t highest = -1;
    for (const Value& version : *versions) {
        const Dictionary* fields = version.dictionary();
        const auto number = fields ? numberIn<std::int64_t>(*fields, "VersionID") : -1;
        if (number > highest) {
            highest = number;
            newest = platform::findText(*fields, "VersionID");
        }
    }
    if (newest.empty())
        throw RecordFault(Kind::damaged,
                          "The service has no version of the record " + file.name + ".");
    return newest;
}

void ServicePlace::get(const std::string& chain, const RecordFile& file,
                       const std::function<bool(std::string_view)>& take)
{
    RecordFile found = file;
    if (found.id.empty()) { // stored by this object a moment ago
        for (RecordFile& listed : files(chain)) {
            if (listed.name == file.name)
                found = std::move(listed);
        }
    }
    const auto failure = source_.read(newestVersion(found), 0, found.size, take);
    if (failure && failure->kind != FetchFailure::Kind::notTaken)
        throw RecordFault(kindOf(failure->kind),
                          "The record " + file.name + " cannot be read: " + failure->reason);
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
