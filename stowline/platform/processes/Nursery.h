// A helper program that is started once, waits, and forks a child for each run.
#pragma once

#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/values/Outcome.h"

#include <functional>
#include <string_view>

namespace stowline::platform {

/// Runs a child as runChild() does, but has a waiting form of the program fork it, where there is
/// one or can be one and the child is the same either way (NurseryConditions.h). Otherwise starts
/// the program for this run, and says why. A run whose child may have begun is never repeated.
///
/// The waiting program (a nursery) ends with this process, however that ends; when it forked for a
/// minute no child; after 1,000 children; and when a child of it was ended by a signal. No wait()
/// of this process finds it or its children. The child of a fork() of this process begins its own.
/// What it has open here is a socket and a handle of its process.
/// @param onAlone told why the program is started for this run, in a few words
[[nodiscard]] Outcome<ChildAnswer, StartFailure>
runNurseryChild(const ChildRun& run, const std::function<void(std::string_view)>& onAlone);

/// Begins a nursery ahead of the first run, where there can be one and none is. Does not wait for
/// it.
void beginNursery(const std::filesystem::path& program);

/// Gives the nursery up, if there is one; runs that are under way come to their end.
void endNursery();

} // namespace stowline::platform
