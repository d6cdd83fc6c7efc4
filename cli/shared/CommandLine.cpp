#include "cli/shared/CommandLine.h"

#include "cli/shared/NearestWord.h"
#include "stowline/platform/text/Numbers.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <set>
#include <type_traits>

namespace stowline::cli {

namespace {

std::set<const CLI::Option*>& passedOver()
{
    static std::set<const CLI::Option*> options;
    return options;
}

/// An unset variable of a script is not a value: nobody means the whole machine by "".
void refuseEmptyText(CLI::Option& option)
{
    option.check(CLI::Validator(
        [](const std::string& value) {
            return value.empty() ? "The value is empty. Please give one, or leave the option out."
                                 : std::string();
        },
        ""));
}

/// The library's own sentence for what is not a number has neither mark nor advice. Of whole
/// numbers it takes "-1" and what is too large for the largest one, where there are none below 0,
/// and reads "010" as 8.
template <class Number> void refuseOtherThanNumbers(CLI::Option& option)
{
    option.transform(CLI::Validator(
        [](std::string& text) {
            const char* wanted =
                std::is_unsigned_v<Number> ? "a whole number of 0 or more" : "a whole number";
            if constexpr (std::is_integral_v<Number>) {
                if (const auto number = platform::wholeNumber<Number>(text)) {
                    text = std::to_string(*number);
                    return std::string();
                }
            } else {
                Number number = 0;
                if (CLI::detail::lexical_cast(text, number))
                    return std::string();
                wanted = "a number";
            }
            return "This must be " + std::string(wanted) + ", not \"" + text + "\"";
        },
        ""));
}

} // namespace

Option Option::required() const
{
    option_->required();
    return *this;
}

Option Option::fromVariable() const
{
    std::string name = "STOWLINE_" + option_->get_lnames().front();
    std::ranges::transform(name, name.begin(), [](char c) {
        return c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    option_->envname(name);
    return *this;
}

Option Option::notInFile() const
{
    option_->configurable(false);
    return *this;
}

Option Option::passedOverInFile() const
{
    passedOver().insert(option_);
    return *this;
}

bool isPassedOverInFile(const CLI::Option& option)
{
    return passedOver().contains(&option);
}

Option Option::defaultsTo(const std::string& value) const
{
    option_->default_val(value);
    return *this;
}

Option Option::showsDefault() const
{
    option_->capture_default_str();
    return *this;
}

Option Option::oneOf(const std::vector<std::string>& values) const
{
    // Asked before the library's own, which has no advice.
    option_->check(CLI::Validator(
        [values](const std::string& text) {
            if (std::ranges::find(values, text) != values.end())
                return std::string();
            std::string sentence = "This must be one of";
            for (const std::string& value : values)
                sentence += (&value == &values.front() ? " " : ", ") + value;
            return sentence + ", not \"" + text + "\"." + suggestion(text, values);
        },
        ""));
    option_->check(CLI::IsMember(values));
    return *this;
}

namespace {

/// The library's own checks name the largest number there is, with all its 309 digits.
/// @param wanted behind "a number"; @param help what the help says of it
CLI::Validator numberThat(bool (*isRight)(double), const std::string& wanted,
                          const std::string& help)
{
    return CLI::Validator(
        [isRight, wanted](const std::string& text) {
            double number = 0;
            const bool isNumber = CLI::detail::lexical_cast(text, number);
            return isNumber && isRight(number)
                       ? std::string()
                       : "This must be a number " + wanted + ", not \"" + text + "\"";
        },
        help);
}

} // namespace

template <class Number> Option Option::between(Number least, Number most) const
{
    option_->check(CLI::Range(least, most));
    // What is not a number is neither below nor above anything.
    option_->check(CLI::Validator(
        [](const std::string& text) {
            double number = 0;
            return CLI::detail::lexical_cast(text, number) && std::isnan(number)
                       ? "This must be a number, not \"" + text + "\""
                       : std::string();
        },
        ""));
    return *this;
}

template Option Option::between(int, int) const;
template Option Option::between(double, double) const;
template Option Option::between(std::uint64_t, std::uint64_t) const;

Option Option::positive() const
{
    option_->check(
        numberThat([](double number) { return number > 0; }, "greater than 0", "POSITIVE"));
    return *this;
}

Option Option::notNegative() const
{
    option_->check(
        numberThat([](double number) { return number >= 0; }, "of 0 or more", "NONNEGATIVE"));
    return *this;
}

namespace {

/// "k", "Mb", "GiB" …, or nothing.
bool isUnitOfBytes(std::string unit)
{
    std::ranges::transform(unit, unit.begin(), [](unsigned char c) { return std::tolower(c); });
    unit.erase(0, unit.find_first_not_of(' ')); // "64 KiB"
    if (unit.empty() || unit == "b")
        return true;
    const std::string_view rest = std::string_view(unit).substr(1);
    return std::string_view("kmgtpe").contains(unit.front()) &&
           (rest.empty() || rest == "b" || rest == "i" || rest == "ib");
}

} // namespace

Option Option::asSize() const
{
    option_->transform(CLI::AsSizeValue(false));
    // Asked before that: the library takes "-5" for the largest number there is, less four.
    option_->transform(CLI::Validator(
        [](const std::string& text) {
            const auto end = std::min(text.find_first_not_of("0123456789."), text.size());
            const double number = end == 0 ? -1 : std::strtod(text.substr(0, end).c_str(), nullptr);
            constexpr double mostThatAnyUnitTakes = 1e6; // of 1024 to the fourth
            constexpr double mostBytes = 1e15;
            const bool isRight = number >= 0 && isUnitOfBytes(text.substr(end)) &&
                                 number <= (end < text.size() ? mostThatAnyUnitTakes : mostBytes);
            return isRight
                       ? std::string()
                       : "This must be a number of bytes, such as 500k or 4m, not \"" + text + "\"";
        },
        ""));
    return *this;
}

Option Option::accepts(std::string (*faultIn)(const std::string& value)) const
{
    option_->check(CLI::Validator([faultIn](std::string& value) { return faultIn(value); }, ""));
    return *this;
}

Option Option::excludes(const Option& other) const
{
    option_->excludes(other.option_);
    return *this;
}

Command Command::addCommand(const std::string& name, const std::string& description) const
{
    return {*app_->add_subcommand(name, description), *chosen_};
}

void Command::needsSubcommand() const
{
    app_->require_subcommand(1);
}

template <class Value>
Option Command::addOption(const std::string& name, Value& value,
                          const std::string& description) const
{
    CLI::Option* option = app_->add_option(name, value, description);
    // A list takes one value each time it is given, so that it swallows no word after it.
    if (!option->get_positional())
        option->allow_extra_args(false);
    if constexpr (std::is_same_v<Value, std::string> ||
                  std::is_same_v<Value, std::vector<std::string>>)
        refuseEmptyText(*option);
    else if constexpr (std::is_arithmetic_v<Value>)
        refuseOtherThanNumbers<Value>(*option);
    else
        refuseOtherThanNumbers<typename Value::value_type>(*option);
    return Option(*option);
}

template Option Command::addOption(const std::string&, std::string&, const std::string&) const;
template Option Command::addOption(const std::string&, std::vector<std::string>&,
                                   const std::string&) const;
template Option Command::addOption(const std::string&, double&, const std::string&) const;
template Option Command::addOption(const std::string&, std::size_t&, const std::string&) const;
template Option Command::addOption(const std::string&, std::int64_t&, const std::string&) const;
template Option Command::addOption(const std::string&, std::optional<std::int64_t>&,
                                   const std::string&) const;
template Option Command::addOption(const std::string&, std::vector<std::int64_t>&,
                                   const std::string&) const;

Option Command::addFlag(const std::string& name, bool& value, const std::string& description) const
{
    return Option(*app_->add_flag(name, value, description));
}

void Command::runs(Chosen work) const
{
    app_->callback([chosen = chosen_, work = std::move(work)] { *chosen = work; });
}

} // namespace stowline::cli
