// What is said between a run and its child, whoever is the child's parent.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/processes/RunningChild.h"

#include <chrono>

namespace stowline::platform {

/// The place at which a child finds its input file.
inline constexpr int kInputDescriptor = 3;

/// Two ends, theirs above the places of a child's descriptors.
struct Channel {
    FileDescriptor ours;
    FileDescriptor theirs;
    [[nodiscard]] bool isOpen() const { return ours.isOpen() && theirs.isOpen(); }
};

/// Moves a descriptor out of the numbers at which a child finds its own, so that placing one never
/// covers another that is still to be placed. Closed when there is none left.
[[nodiscard]] FileDescriptor liftedAbovePlaces(FileDescriptor file);

[[nodiscard]] Channel makePipe();
/// @param type SOCK_STREAM or SOCK_SEQPACKET. For what we write rather than a pipe: a write to a
///        child that is gone can then be told not to raise SIGPIPE in the host program.
[[nodiscard]] Channel makeSocketPair(int type);

/// Whether this thread was asked to stop before anything began.
[[nodiscard]] bool isStopRequested();

/// What a child of runChild() finds open, and our ends of it.
struct RunChannels {
    FileDescriptor input;
    Channel output;
    Channel release;

    [[nodiscard]] static Outcome<RunChannels, StartFailure> madeFor(const ChildRun& run);
    void closeTheirs();
};

/// Reads the child's output to its end, releases and awaits it, or ends it; reaps it.
/// @param release null for a child that is not released
[[nodiscard]] ChildAnswer converse(RunningChild& child, const FileDescriptor& output,
                                   FileDescriptor* release, const ChildRun& run,
                                   std::chrono::steady_clock::time_point deadline);

} // namespace stowline::platform
