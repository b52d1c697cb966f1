#pragma once

#include <QString>
#include <optional>

class QApplication;

namespace ombry {

// Before the application object exists: whether a display is there to draw on, and the
// choice of X11 (through XWayland on a Wayland session) for the windows, since the strip is
// placed on the screen and the keyboard is heard through X11.
bool prepareDesktopSession();

// What to tell the user at start when the dictation key cannot be heard everywhere: the hook
// did not start (its reason), or it runs on XWayland and hears only X11 windows. Nothing when
// all is well.
std::optional<QString> keyboardWarning(const QString& sessionType, bool hookRunning,
                                       const QString& reason);

// The desktop program: one per user, the controller with its key hook, the dictation strip,
// the warm-ups; returns the exit status when the program quits (menu, SIGTERM, SIGINT), after
// the store is written.
int runDesktop(QApplication& app);

} // namespace ombry
