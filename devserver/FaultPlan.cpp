#include "devserver/FaultPlan.h"

#include "stowline/platform/text/Numbers.h"

#include <array>
#include <utility>

namespace stowline::devserver {

namespace {

constexpr std::array<std::pair<std::string_view, FaultKind>, 10> kKinds{{
    {"fault", FaultKind::soapFault},
    {"500", FaultKind::errorPage},
    {"html", FaultKind::htmlPage},
    {"cut", FaultKind::cut},
    {"stall", FaultKind::stall},
    {"reset", FaultKind::reset},
    {"drip", FaultKind::drip},
    {"garbage", FaultKind::garbage},
    {"lost", FaultKind::lost},
    {"lie", FaultKind::lie},
}};

std::optional<FaultKind> kindNamed(std::string_view name)
{
    for (const auto& [known, kind] : kKinds) {
        if (known == name)
            return kind;
    }
    return std::nullopt;
}

} // namespace

std::vector<std::string_view> faultKindNames()
{
    std::vector<std::string_view> names;
    names.reserve(kKinds.size());
    for (const auto& [name, kind] : kKinds)
        names.push_back(name);
    return names;
}

std::optional<std::string> FaultPlan::add(std::string_view text)
{
    const auto first = text.find(':');
    const auto second = text.find(':', first == std::string_view::npos ? first : first + 1);
    if (second == std::string_view::npos)
        return "\"" + std::string(text) + "\" is not a fault: write METHOD:N:KIND.";
    const auto number = text.substr(first + 1, second - first - 1);
    Planned planned{std::string(text.substr(0, first)), std::nullopt, {}};
    if (number != "*") {
        const auto call = platform::wholeNumber<unsigned>(number);
        if (!call || *call == 0)
            return "\"" + std::string(number) +
                   "\" is not the number of a call: write 1, 2, … or *.";
        planned.call = call;
    }
    const auto kind = kindNamed(text.substr(second + 1));
    if (!kind)
        return "\"" + std::string(text.substr(second + 1)) + "\" is not a kind of fault.";
    planned.kind = *kind;
    const std::lock_guard lock(mutex_);
    planned_.push_back(std::move(planned));
    return std::nullopt;
}

std::optional<FaultKind> FaultPlan::next(const std::string& method)
{
    const std::lock_guard lock(mutex_);
    const unsigned call = ++calls_[method];
    for (const Planned& planned : planned_) {
        if (planned.method == method && planned.call.value_or(call) == call)
            return planned.kind;
    }
    return std::nullopt;
}

} // namespace stowline::devserver
