#include "stowline/platform/desktop/Alert.h"

#include "stowline/platform/desktop/ConsoleLog.h"
#include "stowline/platform/processes/ChildProcess.h"
#include "stowline/platform/processes/Terminal.h"

#include <cstdlib>
#include <mutex>
#include <vector>

namespace stowline::platform {

namespace {

/// A person may take their time.
constexpr std::chrono::hours kPatience{24 * 365};

struct Presenter {
    std::mutex mutex;
    std::function<void(const Alert&)> show;
};

Presenter& presenter()
{
    static auto& instance = *new Presenter;
    return instance;
}

bool hasDisplay()
{
    const auto isSet = [](const char* variable) {
        const char* value = std::getenv(variable);
        return value && *value != '\0';
    };
    return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY");
}

std::string textOf(const Alert& alert)
{
    return alert.message + "\n\n" + alert.informativeText;
}

enum class Dialogue {
    answered,
    ended,     ///< closed without the button, or it could not reach the display after all
    notStarted ///< the desktop has no such program
};

Dialogue runDialogue(const std::vector<std::string>& command)
{
    const auto answer = captureOutput(command, kPatience);
    if (!answer)
        return Dialogue::notStarted;
    return answer->exit.isSuccess() ? Dialogue::answered : Dialogue::ended;
}

Dialogue showOnDesktop(const Alert& alert)
{
    if (!hasDisplay())
        return Dialogue::notStarted;
    const auto shown = runDialogue({"zenity", "--warning", "--no-markup", "--title", alert.message,
                                    "--text", textOf(alert), "--ok-label", alert.button});
    if (shown != Dialogue::notStarted)
        return shown;
    return runDialogue({"kdialog", "--title", alert.message, "--sorry", textOf(alert)});
}

} // namespace

void showAlert(const Alert& alert)
{
    std::function<void(const Alert&)> show;
    {
        const std::lock_guard lock(presenter().mutex);
        show = presenter().show;
    }
    if (show) {
        show(alert);
        return;
    }
    const Dialogue shown = showOnDesktop(alert);
    if (shown == Dialogue::answered)
        return;
    // A dialogue that ended otherwise may have been seen, so nobody is made to answer twice.
    const auto wait = shown == Dialogue::ended ? TerminalWait::no : TerminalWait::forReturn;
    if (!tellOnTerminal(textOf(alert) + "\n", "[" + alert.button + "] ", wait))
        consoleLog(textOf(alert));
}

void setAlertPresenter(std::function<void(const Alert&)> show)
{
    const std::lock_guard lock(presenter().mutex);
    presenter().show = std::move(show);
}

} // namespace stowline::platform
