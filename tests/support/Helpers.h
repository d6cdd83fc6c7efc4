// The helper programs of a host: nurseries, their children, and those that were started alone.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>
#include <vector>

namespace stowline::test {

/// The two ways in which a call comes by its helper. What is promised of processes, secrets and
/// faults holds in both.
enum class HelperForm { ofNursery, startedAlone };
inline constexpr std::array kHelperForms{HelperForm::ofNursery, HelperForm::startedAlone};

[[nodiscard]] inline std::string nameOfForm(const testing::TestParamInfo<HelperForm>& form)
{
    return form.param == HelperForm::ofNursery ? "OfNursery" : "StartedAlone";
}

/// What makes the command take a form.
[[nodiscard]] inline std::map<std::string, std::string> environmentFor(HelperForm form)
{
    return {{"STOWLINE_NO_NURSERY", form == HelperForm::ofNursery ? "0" : "1"}};
}

/// How many nurseries a host has that waits for a call.
[[nodiscard]] constexpr std::size_t nurseriesIn(HelperForm form)
{
    return form == HelperForm::ofNursery ? 1 : 0;
}

/// Process ids of the nurseries that a process has begun and that have not ended.
[[nodiscard]] std::vector<int> nurseriesOf(int host);

/// Process ids of the helpers at work for a process, however they were started.
[[nodiscard]] std::vector<int> helpersOf(int host);

} // namespace stowline::test
