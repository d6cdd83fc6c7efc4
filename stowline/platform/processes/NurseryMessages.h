// What a host program and its nursery say to each other.
//
// The host and the nursery hold the ends of a socket that keeps messages apart (SOCK_SEQPACKET). A
// call is one message of the host: four bytes, with the five descriptors of the call as ancillary
// data and the credentials of the sender, which the kernel vouches for. Each call brings a socket
// of its own, the last of the five, on which the nursery tells of it: that the child is begun, or
// that there is none, and how it ended; and the child, that it is there, and when all is done. The
// host asks for a child's end by shutting its half of that socket down, by closing it, or by
// ending.
#pragma once

#include "stowline/platform/files/FileDescriptor.h"

#include <array>
#include <cstdint>
#include <optional>
#include <sys/types.h>

namespace stowline::platform {

/// The places at which a nursery finds what it is started with.
inline constexpr int kNurserySocket = 3;
inline constexpr int kNurseryHost = 4; ///< a handle of the host's process

/// The only argument of a program that is to be a nursery, followed by kNurserySocket's number.
inline constexpr const char* kNurseryWord = "--nursery";

/// The descriptors of one call, in the order of the message.
enum class CallDescriptor : std::size_t { release, output, errors, request, report };
inline constexpr std::size_t kCallDescriptors = 5;

struct NurseryReport {
    enum class Kind : std::int32_t {
        begun = 1,   ///< from now on the child may have done what it does
        refused = 2, ///< there is no child, and `value` is an errno value
        ended = 3,   ///< `value` is the exit status or the signal's number
        working = 4, ///< the child itself says that it is there
        leaving = 5, ///< and that it is done and ends, with the exit status `value`: the system
                     ///< takes longer to take a process down than many a call does
    };
    Kind kind{};
    std::int32_t value = 0;
    std::int32_t bySignal = 0;
};

/// Hands a call over. Does not wait: a nursery that is behind refuses.
/// @return 0, or an errno value
[[nodiscard]] int sendCall(int socket, const std::array<int, kCallDescriptors>& descriptors);

struct ReceivedCall {
    pid_t sender = 0;
    std::array<FileDescriptor, kCallDescriptors> descriptors;
};

enum class Reception { call, nonsense, nothing, end };

/// Takes the next message, if there is one. What is not a call is dropped with all it brought.
[[nodiscard]] Reception receiveCall(int socket, ReceivedCall& call);

/// Tells of a call. @return false when it did not get there: nobody listens, or the system failed
bool sendReport(int socket, const NurseryReport& report);

enum class ReportState { report, none, nonsense, end };

/// Takes the next report, if there is one. What the system fails to hand over is nonsense, too.
[[nodiscard]] ReportState receiveReport(int socket, NurseryReport& report);

} // namespace stowline::platform
