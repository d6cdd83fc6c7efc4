// Something a person must be told at once, and waits for their answer.
#pragma once

#include <functional>
#include <string>

#pragma GCC visibility push(default)
namespace stowline::platform {

/// A sentence, what explains it, and the one button that ends it.
struct Alert {
    std::string message;
    std::string informativeText;
    std::string button;
};

/// Shows an alert and waits until the person has seen it. On the main thread only, because hosts
/// show it in a window.
///
/// The host's presenter shows it when one is set. Otherwise a dialogue of the desktop (zenity, else
/// kdialog) when there is a display; otherwise the process's terminal, where Return is the button;
/// otherwise, with nobody to tell, the machine's log and no waiting.
void showAlert(const Alert& alert);

/// How the host application shows alerts; an empty function restores the default.
void setAlertPresenter(std::function<void(const Alert&)> presenter);

} // namespace stowline::platform
#pragma GCC visibility pop
