#include "stowline/platform/processes/Terminal.h"

#include "stowline/platform/files/FileDescriptor.h"
#include "stowline/platform/threads/StopRequest.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace stowline::platform {

namespace {

/// The terminal whose echo is off, and how it was before.
struct HiddenInput {
    std::mutex mutex;
    int terminal = -1;
    termios before{};
};

HiddenInput& hiddenInput()
{
    static auto& instance = *new HiddenInput;
    return instance;
}

bool hideTyping(int terminal)
{
    HiddenInput& hidden = hiddenInput();
    const std::lock_guard lock(hidden.mutex);
    if (::tcgetattr(terminal, &hidden.before) != 0)
        return false;
    termios silent = hidden.before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ICANON | ECHONL | ISIG;
    hidden.terminal = terminal;
    return ::tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
}

/// @return false when this thread is asked to stop
bool awaitTyping(int terminal)
{
    const StopRequest* stop = StopRequest::ofThisThread();
    std::array<pollfd, 2> awaited{
        pollfd{terminal, POLLIN, 0},
        pollfd{stop != nullptr ? stop->descriptor() : -1, POLLIN, 0}, // -1 is passed over
    };
    while (::poll(awaited.data(), awaited.size(), -1) < 0 && errno == EINTR) {
    }
    return stop == nullptr || !stop->isRequested();
}

std::optional<std::string> readLine(int terminal)
{
    std::string line;
    char character = 0;
    for (;;) {
        if (!awaitTyping(terminal))
            return std::nullopt;
        const ssize_t count = ::read(terminal, &character, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return std::nullopt;
        if (character == '\n')
            return line;
        line.push_back(character);
    }
}

FileDescriptor openTerminal()
{
    return FileDescriptor(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
}

} // namespace

bool standardErrorIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

std::size_t standardErrorColumns()
{
    constexpr std::size_t usual = 80;
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

bool tellOnTerminal(std::string_view text, std::string_view prompt, TerminalWait wait)
{
    const FileDescriptor terminal = openTerminal();
    if (!terminal.isOpen() || !writeAll(terminal.number(), text))
        return false;
    if (wait == TerminalWait::forReturn && writeAll(terminal.number(), prompt))
        (void)readLine(terminal.number());
    return true;
}

std::optional<std::string> readLineFromTerminal(std::string_view prompt)
{
    const FileDescriptor terminal = openTerminal();
    if (!terminal.isOpen())
        return std::nullopt;
    (void)::tcflush(terminal.number(), TCIFLUSH); // typed before anybody could read the question
    if (!writeAll(terminal.number(), prompt))
        return std::nullopt;
    return readLine(terminal.number());
}

std::optional<std::string> readHiddenLine(std::string_view prompt)
{
    const FileDescriptor terminal = openTerminal();
    if (!terminal.isOpen() || !hideTyping(terminal.number()))
        return std::nullopt;
    (void)writeAll(terminal.number(), prompt);
    auto line = readLine(terminal.number());
    restoreTerminal();
    return line;
}

void restoreTerminal()
{
    HiddenInput& hidden = hiddenInput();
    const std::lock_guard lock(hidden.mutex);
    if (hidden.terminal >= 0)
        ::tcsetattr(std::exchange(hidden.terminal, -1), TCSAFLUSH, &hidden.before);
}

} // namespace stowline::platform
