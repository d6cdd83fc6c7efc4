#include "stowline/platform/desktop/ServiceUnits.h"

#include "stowline/platform/files/Files.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/text/Numbers.h"
#include "stowline/platform/text/Text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <system_error>

namespace stowline::platform {

namespace {

namespace fs = std::filesystem;

/// Tells a file of ours from anybody else's.
constexpr std::string_view kMark =
    "# Written by \"stowline schedule install\"; \"stowline schedule "
    "remove\" takes it away.\n";
constexpr std::chrono::seconds kManagerLimit{30};
constexpr std::size_t kLongestFileName = 255;
constexpr std::array<const char*, 2> kKinds{".service", ".timer"};

/// "\\x" and two digits.
std::string escapeOf(unsigned char byte)
{
    constexpr std::string_view digits = "0123456789abcdef";
    return {'\\', 'x', digits[byte >> 4U], digits[byte & 0xfU]};
}

std::string twoDigits(int number)
{
    return {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10)};
}

bool isControl(unsigned char byte)
{
    return byte < 0x20 || byte == 0x7f;
}

/// A text in a setting that expands specifiers and nothing else.
std::string unitLine(std::string_view text)
{
    std::string line;
    for (const char c : text)
        line += isControl(static_cast<unsigned char>(c)) ? "?"
                : c == '%'                               ? "%%"
                                                         : std::string(1, c);
    return line;
}

/// Quotes a word. Command lines alone know variables.
std::optional<std::string> quoted(std::string_view word, bool expandsVariables)
{
    if (validUtf8PrefixLength(word) != word.size() || word.find('\0') != std::string_view::npos)
        return std::nullopt;
    std::string text = "\"";
    for (const char c : word) {
        const auto byte = static_cast<unsigned char>(c);
        if (isControl(byte))
            text += escapeOf(byte);
        else if (c == '"' || c == '\\')
            text += std::string("\\") + c;
        else if (c == '%' || (c == '$' && expandsVariables))
            text += std::string(2, c);
        else
            text += c;
    }
    return text + "\"";
}

std::optional<std::string> outputOfManager(std::vector<std::string> words)
{
    words.insert(words.begin(), {"systemctl", "--user"});
    auto answer = captureOutput(words, kManagerLimit);
    if (!answer || !answer->exit.isSuccess())
        return std::nullopt;
    return std::move(answer->output);
}

bool isOurs(const fs::path& file)
{
    const auto text = readRegularFile(file);
    return text && text->starts_with(kMark);
}

/// What "enable" makes.
std::optional<fs::path> linkOf(const fs::path& timer)
{
    const fs::path link = timer.parent_path() / "timers.target.wants" / timer.filename();
    std::error_code unknown;
    return fs::is_symlink(fs::symlink_status(link, unknown)) ? std::optional(link) : std::nullopt;
}

} // namespace

std::optional<std::string> unitWord(std::string_view word)
{
    return quoted(word, true);
}

std::optional<UnitTexts> unitTexts(const DailyRun& run)
{
    std::string command;
    for (const std::string& word : run.command) {
        const auto text = unitWord(word);
        if (!text)
            return std::nullopt;
        command += command.empty() ? "" : " ";
        command += *text;
    }
    std::string variables;
    for (const auto& [name, value] : run.variables) {
        std::string assignment = name;
        assignment.append("=").append(value);
        const auto text = quoted(assignment, false);
        if (!text)
            return std::nullopt;
        variables.append("Environment=").append(*text).append("\n");
    }
    const std::string description = unitLine(run.description);
    UnitTexts texts;
    const std::string head = std::string(kMark) + "[Unit]\nDescription=" + description + "\n";
    texts.service = head + (run.onMainsOnly ? "ConditionACPower=true\n" : "") +
                    "\n[Service]\nType=oneshot\nWorkingDirectory=~\n" + variables +
                    "ExecStart=" + command + "\nNice=10\nIOSchedulingClass=idle\n";
    texts.timer = head + "\n[Timer]\nOnCalendar=*-*-* " + twoDigits(run.hour) + ":" +
                  twoDigits(run.minute) +
                  ":00\nRandomizedDelaySec=5min\nPersistent=true\n\n[Install]\n"
                  "WantedBy=timers.target\n";
    return texts;
}

std::optional<std::string> unitName(const std::string& prefix, std::string_view instance)
{
    constexpr std::string_view asTheyAre =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.";
    std::string name = prefix;
    for (const char c : instance)
        name += asTheyAre.find(c) != std::string_view::npos
                    ? std::string(1, c)
                    : escapeOf(static_cast<unsigned char>(c));
    return name.size() + std::string_view(kKinds[0]).size() > kLongestFileName
               ? std::nullopt
               : std::optional(name);
}

namespace {

/// What unitName() made of an instance, read again.
std::string instanceOf(std::string_view escaped)
{
    constexpr std::size_t length = 4; // "\\x" and two digits
    std::string instance;
    while (!escaped.empty()) {
        const auto byte = escaped.starts_with("\\x") && escaped.size() >= length
                              ? wholeNumber<unsigned>(escaped.substr(2, 2), 16)
                              : std::nullopt;
        instance += byte ? static_cast<char>(*byte) : escaped.front();
        escaped.remove_prefix(byte ? length : 1);
    }
    return instance;
}

} // namespace

std::vector<std::string> instancesOfUnits(const std::string& prefix)
{
    std::vector<std::string> instances;
    const auto folder = configurationFolder();
    std::error_code fault;
    for (fs::directory_iterator
             file(folder ? folder->parent_path() / "systemd" / "user" : "", fault),
         end;
         !fault && file != end; file.increment(fault)) {
        const std::string unit = file->path().stem().string();
        if (file->path().extension() != ".timer" || !unit.starts_with(prefix) ||
            !UserUnits(unit).areOurs())
            continue;
        std::string instance = instanceOf(std::string_view(unit).substr(prefix.size()));
        if (unitName(prefix, instance) == unit)
            instances.push_back(std::move(instance));
    }
    std::ranges::sort(instances);
    return instances;
}

bool UserUnits::isManagerThere()
{
    return outputOfManager({"show", "--property=Version"}).has_value();
}

std::optional<fs::path> UserUnits::file(const std::string& kind) const
{
    const auto folder = configurationFolder();
    return folder ? std::optional(folder->parent_path() / "systemd" / "user" / (name_ + kind))
                  : std::nullopt;
}

bool UserUnits::areOurs() const
{
    return texts().has_value();
}

bool UserUnits::isForeign() const
{
    for (const char* kind : kKinds) {
        std::error_code unknown;
        const auto place = file(kind);
        if (place && fs::symlink_status(*place, unknown).type() != fs::file_type::not_found &&
            !isOurs(*place))
            return true;
    }
    return false;
}

std::optional<UnitTexts> UserUnits::texts() const
{
    const auto service = file(".service");
    const auto timer = file(".timer");
    auto ofService = service ? readRegularFile(*service) : std::nullopt;
    auto ofTimer = timer ? readRegularFile(*timer) : std::nullopt;
    if (!ofService || !ofTimer || !ofService->starts_with(kMark) || !ofTimer->starts_with(kMark))
        return std::nullopt;
    return UnitTexts{std::move(*ofService), std::move(*ofTimer)};
}

bool UserUnits::write(const UnitTexts& texts) const
{
    const auto service = file(".service");
    const auto timer = file(".timer");
    return service && timer && makePrivateFolder(service->parent_path()) &&
           writeFileAtomically(*service, texts.service) && writeFileAtomically(*timer, texts.timer);
}

bool UserUnits::enable() const
{
    return outputOfManager({"daemon-reload"}) && outputOfManager({"enable", name_ + ".timer"}) &&
           outputOfManager({"restart", name_ + ".timer"}) && isActive();
}

bool UserUnits::isActive() const
{
    return property("ActiveState") == "active";
}

std::string UserUnits::property(const std::string& property) const
{
    std::string value =
        outputOfManager({"show", "--value", "--property=" + property, name_ + ".timer"})
            .value_or("");
    while (value.ends_with('\n'))
        value.pop_back();
    return value;
}

bool UserUnits::remove() const
{
    const auto timer = file(".timer");
    if (!timer)
        return false;
    const bool isStopped = outputOfManager({"disable", "--now", name_ + ".timer"}).has_value();
    bool isGone = true;
    std::error_code fault;
    if (const auto link = linkOf(*timer)) // where no manager took it away
        isGone = fs::remove(*link, fault);
    for (const char* kind : kKinds) {
        if (const auto place = file(kind); isOurs(*place))
            isGone = fs::remove(*place, fault) && isGone;
    }
    return isGone && (!isStopped || outputOfManager({"daemon-reload"}).has_value());
}

} // namespace stowline::platform
