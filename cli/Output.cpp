#include "cli/Output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <mutex>

namespace stowline::cli {

namespace {

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
    case ExitStatus::settingsInvalid:
        return "settings-invalid";
    case ExitStatus::locked:
        return "locked";
    case ExitStatus::signInRefused:
        return "sign-in-refused";
    case ExitStatus::interrupted:
    case ExitStatus::terminated:
        return "interrupted";
    default:
        return "failed";
    }
}

/// JSON in UTF-8 whatever is in it.
std::string dumped(const nlohmann::ordered_json& object)
{
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace

void Output::note(std::string_view sentence) const
{
    if (!quiet_)
        fmt::print(stderr, "{}\n", sentence);
}

void Output::complain(std::string_view sentence) const
{
    fmt::print(stderr, "stowline: {}\n", sentence);
}

void Output::item(std::string_view text, const nlohmann::ordered_json& object) const
{
    if (json_)
        fmt::print("{}\n", dumped(object));
    else
        fmt::print("{}\n", text);
}

void Output::printResult(ExitStatus status,
                         const std::vector<std::pair<std::string, std::string>>& fields) const
{
    if (json_) {
        nlohmann::ordered_json result{{"v", 1},
                                      {"type", "result"},
                                      {"command", command_},
                                      {"status", nameOf(status)},
                                      {"exit", static_cast<int>(status)}};
        for (const auto& [name, value] : fields)
            result[name] = value;
        fmt::print("{}\n", dumped(result));
    } else if (status == ExitStatus::done) {
        std::size_t widest = 0;
        for (const auto& [name, value] : fields)
            widest = std::max(widest, name.size());
        for (const auto& [name, value] : fields)
            fmt::print("{:<{}}  {}\n", name, widest, value);
    }
    std::fflush(stdout);
}

ExitStatus Output::finish(ExitStatus status,
                          const std::vector<std::pair<std::string, std::string>>& fields)
{
    const std::lock_guard lock(finishing());
    if (!finished_)
        printResult(status, fields);
    finished_ = true;
    return status;
}

ExitStatus Output::finishWithText(const std::string& name, const std::string& text)
{
    if (json_)
        return finish(ExitStatus::done, {{name, text}});
    fmt::print("{}\n", text);
    return finish(ExitStatus::done);
}

ExitStatus Output::fail(ExitStatus status, const std::string& sentence)
{
    complain(sentence);
    return finish(status, {{"message", sentence}});
}

Output& output()
{
    static auto& instance = *new Output;
    return instance;
}

} // namespace stowline::cli
