#include "stowline/platform/StandardStreams.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace stowline::platform {

bool writeOnceToStandardOutput(std::string_view bytes)
{
    ssize_t written = -1;
    do {
        written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(bytes.size());
}

void closeStandardOutput()
{
    ::close(STDOUT_FILENO);
}

void awaitReleaseBytes()
{
    std::array<char, 4> release{};
    std::size_t received = 0;
    while (received < release.size()) {
        const ssize_t count =
            ::read(STDIN_FILENO, release.data() + received, release.size() - received);
        if (count == 0 || (count < 0 && errno != EINTR))
            return;
        received += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

} // namespace stowline::platform
