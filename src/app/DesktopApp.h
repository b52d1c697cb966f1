#pragma once

#include "platform/SessionRoads.h"

#include <QString>
#include <optional>

class QApplication;

namespace ombry {

// Before the application object exists: whether a display is there to draw on, and the
// choice of X11 for the windows where an X server is there (XWayland on a Wayland session), so
// that the strip can place itself on the screen. The services' roads do not follow this choice.
bool prepareDesktopSession();

// What to tell the user at start when the dictation key cannot be heard: on X11 the hook did
// not start (its reason); on Wayland the desktop offers no road at all. Nothing when all is
// well, or when the desktop's answer is still to come (its shortcut service).
std::optional<QString> keyboardWarning(KeyRoad road, bool hookRunning, const QString& reason);

// The desktop program: one per user, the controller with its key hook, the dictation strip,
// the warm-ups; returns the exit status when the program quits (menu, SIGTERM, SIGINT), after
// the store is written.
int runDesktop(QApplication& app);

} // namespace ombry
