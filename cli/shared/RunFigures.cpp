#include "cli/shared/RunFigures.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/text/Text.h"
#include "stowline/platform/values/PropertyList.h"

namespace stowline::cli {

namespace {

std::optional<std::filesystem::path> lastRunFile()
{
    const auto state = platform::stateFolder();
    return state ? std::optional(*state / "last-run.plist") : std::nullopt;
}

std::uint64_t countIn(const Dictionary& fields, std::string_view key)
{
    return static_cast<std::uint64_t>(platform::leadingInteger(platform::findText(fields, key)));
}

} // namespace

Dictionary RunFigures::dictionary() const
{
    return {{"username", platform::dataFromText(username)},
            {"machine", platform::dataFromText(machine)},
            {"begun", begun},
            {"seconds", seconds},
            {"notChanged", notChanged},
            {"backedUp", backedUp},
            {"failed", failed},
            {"notChangedBytes", notChangedBytes},
            {"backedUpBytes", backedUpBytes},
            {"failedBytes", failedBytes}};
}

std::optional<RunFigures> RunFigures::fromDictionary(const Dictionary& fields)
{
    const Value* username = find(fields, "username");
    const Value* machine = find(fields, "machine");
    const Value* begun = find(fields, "begun");
    const Value* seconds = find(fields, "seconds");
    if (!username || !username->data() || !machine || !machine->data() || !begun || !begun->date())
        return std::nullopt;
    return RunFigures{.username = platform::textFromData(*username->data()),
                      .machine = platform::textFromData(*machine->data()),
                      .begun = *begun->date(),
                      .seconds = seconds && seconds->real() ? *seconds->real() : 0,
                      .notChanged = countIn(fields, "notChanged"),
                      .backedUp = countIn(fields, "backedUp"),
                      .failed = countIn(fields, "failed"),
                      .notChangedBytes = countIn(fields, "notChangedBytes"),
                      .backedUpBytes = countIn(fields, "backedUpBytes"),
                      .failedBytes = countIn(fields, "failedBytes")};
}

RunFigures figuresOf(const backup::BackupSummary& result, const std::string& username,
                     const std::string& machine, Date begun)
{
    return {.username = username,
            .machine = machine,
            .begun = begun,
            .seconds = result.seconds,
            .notChanged = result.unchanged,
            .backedUp = result.stored,
            .failed = result.failed,
            .notChangedBytes = result.unchangedBytes,
            .backedUpBytes = result.storedBytes,
            .failedBytes = result.failedBytes};
}

void keepLastRun(const RunFigures& figures)
{
    const auto file = lastRunFile();
    const auto bytes = platform::writeBinaryPropertyList(figures.dictionary());
    if (file && bytes && platform::makePrivateFolder(file->parent_path()))
        (void)platform::replaceFile(*file, *bytes); // without it a later report says so
}

std::optional<RunFigures> lastRun()
{
    const auto file = lastRunFile();
    const auto bytes = file ? platform::readFile(*file) : std::nullopt;
    const auto reading =
        bytes ? platform::readPropertyList(*bytes) : platform::PropertyListReading();
    const Dictionary* fields = reading.value ? reading.value->dictionary() : nullptr;
    return fields ? RunFigures::fromDictionary(*fields) : std::nullopt;
}

} // namespace stowline::cli
