#include "cli/shared/Output.h"

#include "stowline/platform/text/SystemErrorText.h"
#include "stowline/platform/text/Text.h"
#include "stowline/util/Base64.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>

namespace stowline::cli {

namespace {

constexpr const char* kMessage = "message";

std::mutex& finishing()
{
    static auto& mutex = *new std::mutex;
    return mutex;
}

std::string_view nameOf(ExitStatus status)
{
    switch (status) {
    case ExitStatus::done:
        return "done";
    case ExitStatus::usage:
        return "usage";
    case ExitStatus::someItemsFailed:
        return "some-items-failed";
    case ExitStatus::notFound:
        return "not-found";
    case ExitStatus::temporary:
        return "temporary";
    case ExitStatus::refused:
        return "refused";
    case ExitStatus::checksumMismatch:
        return "checksum-mismatch";
    case ExitStatus::hostUnreachable:
        return "host-unreachable";
    case ExitStatus::overdue:
        return "overdue";
    case ExitStatus::settingsInvalid:
        return "settings-invalid";
    case ExitStatus::locked:
        return "locked";
    case ExitStatus::signInRefused:
        return "sign-in-refused";
    case ExitStatus::interrupted:
    case ExitStatus::terminated:
        return "interrupted";
    case ExitStatus::failed:
        break;
    }
    return "failed";
}

std::string textOf(const FieldValue& value)
{
    return std::visit([](const auto& known) { return fmt::format("{}", known); }, value);
}

/// A name and a value as an object takes them. Sentences stay sentences.
std::pair<std::string, FieldValue> inUtf8(const std::pair<std::string, FieldValue>& field)
{
    const auto& [name, value] = field;
    const auto* text = std::get_if<std::string>(&value);
    if (!text || name == kMessage || platform::isValidUtf8(*text))
        return field;
    return {name + "_b64", Base64::base64EncodingWithLineLength(*text, 0)};
}

std::string jsonOf(std::string_view type, const Fields& fields)
{
    nlohmann::ordered_json object{{"v", 1}, {"type", type}};
    for (const auto& field : fields) {
        const auto [name, value] = inUtf8(field);
        std::visit([&object, &key = name](const auto& known) { object[key] = known; }, value);
    }
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/// Standard error may take nothing (a log on a full disk); then there is nobody to tell.
void tell(const std::string& line)
{
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace

void Output::note(std::string_view sentence) const
{
    if (!quiet_)
        tell(platform::withoutControls(sentence) + "\n");
}

void Output::complain(std::string_view sentence) const
{
    tell("stowline: " + platform::withoutControls(sentence) + "\n");
}

void Output::heading(std::string_view line) const
{
    if (!json_)
        print(line);
}

void Output::item(std::string_view text, std::string_view type, const Fields& fields) const
{
    print(json_ ? jsonOf(type, fields) : platform::withoutControls(text));
}

void Output::print(std::string_view line) const
{
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size() ||
        std::fputc('\n', stdout) == EOF)
        noteBroken();
}

void Output::noteBroken() const
{
    if (std::exchange(isBroken_, true))
        return;
    const int error = errno; // the first failure tells; later ones may have no number
    whyBroken_ =
        error == EPIPE ? "whoever reads it has closed it" : platform::systemErrorText(error);
}

/// A result that nobody got is none.
ExitStatus Output::end(ExitStatus status)
{
    finished_ = true;
    if (std::fflush(stdout) != 0)
        noteBroken();
    if (!isBroken_)
        return status;
    complain("The results cannot be written to standard output: " + whyBroken_ + ".");
    return status == ExitStatus::done ? ExitStatus::failed : status;
}

void Output::printResult(ExitStatus status, const Fields& fields) const
{
    if (json_) {
        Fields all{{"command", command_},
                   {"status", std::string(nameOf(status))},
                   {"exit", static_cast<int>(status)}};
        all.insert(all.end(), fields.begin(), fields.end());
        print(jsonOf("result", all));
    } else if (status == ExitStatus::done) {
        std::size_t widest = 0;
        for (const auto& [name, value] : fields)
            widest = std::max(widest, name.size());
        for (const auto& [name, value] : fields)
            print(fmt::format("{:<{}}  {}", name, widest, onOneLine(textOf(value))));
    }
}

ExitStatus Output::finish(ExitStatus status, const Fields& fields)
{
    const std::lock_guard lock(finishing());
    if (finished_)
        return status;
    printResult(status, fields);
    return end(status);
}

ExitStatus Output::finishWithText(const std::string& name, const std::string& text)
{
    if (json_)
        return finish(ExitStatus::done, {{name, text}});
    print(text);
    return finish(ExitStatus::done);
}

ExitStatus Output::fail(ExitStatus status, const std::string& sentence, std::string_view cause)
{
    complain(sentence);
    Fields fields{{kMessage, sentence}};
    if (!cause.empty())
        fields.emplace_back("cause", std::string(cause));
    {
        const std::lock_guard lock(finishing());
        if (!finished_)
            failure_ = {sentence, std::string(cause)};
    }
    return finish(status, fields);
}

std::string onOneLine(std::string_view name)
{
    std::string shown = platform::withoutControls(name);
    std::ranges::replace_if(
        shown, [](char c) { return c == '\n' || c == '\t'; }, '?');
    return shown;
}

Output& output()
{
    static auto& instance = *new Output;
    return instance;
}

} // namespace stowline::cli
