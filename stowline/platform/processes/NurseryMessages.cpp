#include "stowline/platform/processes/NurseryMessages.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <sys/socket.h>

namespace stowline::platform {

namespace {

constexpr std::string_view kCall = "call";

/// Room for what a call brings, and as much again, so that too much is seen and closed.
union Ancillary {
    cmsghdr aligned;
    std::array<char, CMSG_SPACE(2 * kCallDescriptors * sizeof(int)) + CMSG_SPACE(sizeof(ucred))>
        bytes;
};

ssize_t receive(int socket, msghdr& message)
{
    ssize_t count = -1;
    do
        count = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    while (count < 0 && errno == EINTR);
    return count;
}

/// Takes what a message brought. @return whether it was exactly what a call brings
bool takeAncillary(msghdr& message, ReceivedCall& call)
{
    std::size_t taken = 0;
    bool hasSender = false;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET)
            continue;
        if (part->cmsg_type == SCM_CREDENTIALS) {
            ucred sender{};
            std::memcpy(&sender, CMSG_DATA(part), sizeof sender);
            call.sender = sender.pid;
            hasSender = true;
        } else if (part->cmsg_type == SCM_RIGHTS) {
            const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (std::size_t i = 0; i < count; ++i, ++taken) {
                int number = -1;
                std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
                FileDescriptor file(number);
                if (taken < kCallDescriptors)
                    call.descriptors.at(taken) = std::move(file);
            }
        }
    }
    return taken == kCallDescriptors && hasSender && (message.msg_flags & MSG_CTRUNC) == 0;
}

} // namespace

int sendCall(int socket, const std::array<int, kCallDescriptors>& descriptors)
{
    std::array<char, kCall.size()> word{};
    std::memcpy(word.data(), kCall.data(), kCall.size());
    iovec content{word.data(), word.size()};
    Ancillary ancillary{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = ancillary.bytes.data();
    message.msg_controllen = CMSG_SPACE(sizeof descriptors);
    cmsghdr* part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(part), descriptors.data(), sizeof descriptors);
    ssize_t count = -1;
    do
        count = ::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (count < 0 && errno == EINTR);
    return count < 0 ? errno : 0;
}

Reception receiveCall(int socket, ReceivedCall& call)
{
    std::array<char, kCall.size() + 1> word{};
    iovec content{word.data(), word.size()};
    Ancillary ancillary{};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = ancillary.bytes.data();
    message.msg_controllen = sizeof ancillary.bytes;
    const ssize_t count = receive(socket, message);
    if (count < 0)
        return errno == EAGAIN ? Reception::nothing : Reception::end;
    const bool isWhole = takeAncillary(message, call);
    if (count == 0 && !isWhole)
        return Reception::end;
    const bool isCall = std::string_view(word.data(), static_cast<std::size_t>(count)) == kCall;
    return isWhole && isCall ? Reception::call : Reception::nonsense;
}

bool sendReport(int socket, const NurseryReport& report)
{
    ssize_t count = -1;
    do
        count = ::send(socket, &report, sizeof report, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (count < 0 && errno == EINTR);
    return count == sizeof report;
}

ReportState receiveReport(int socket, NurseryReport& report)
{
    ssize_t count = -1;
    do
        count = ::recv(socket, &report, sizeof report, MSG_DONTWAIT);
    while (count < 0 && errno == EINTR);
    if (count < 0 && errno == EAGAIN)
        return ReportState::none;
    if (count == sizeof report)
        return ReportState::report;
    return count == 0 ? ReportState::end : ReportState::nonsense;
}

} // namespace stowline::platform
