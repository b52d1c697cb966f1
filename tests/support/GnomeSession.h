#pragma once

#include "FieldProcess.h"
#include "SessionBus.h"

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace ombry::test {

// A headless GNOME desktop for a test: mutter on a virtual monitor with its XWayland and its
// portals (xdg-desktop-portal-gnome only) on a private session bus, and a text field of another
// application on it (a native Wayland client). start() points this process's environment at it
// (WAYLAND_DISPLAY, DISPLAY, XDG_CURRENT_DESKTOP, the bus), so that programs started afterwards
// join it; call it before the application object is made.
class GnomeSession {
public:
    GnomeSession() = default;
    ~GnomeSession();
    GnomeSession(const GnomeSession&) = delete;
    GnomeSession& operator=(const GnomeSession&) = delete;

    static bool installed();
    bool start();
    QString error() const { return error_; }

    // The application in front, once opened.
    FieldProcess field;
    // Keys typed by the user into the window in front (keysyms, "0xffe1" for Shift), through
    // mutter's own remote desktop; mutter loses the first key of a session.
    bool typeKeys(const QStringList& keysyms);
    // Answers the portal's consent dialog (switches on, "Share") as a user would, through the
    // accessibility bus, once it shows; false when none came.
    bool answerConsentDialog(int timeoutMs = 15000);

private:
    SessionBus bus_;
    QTemporaryDir portals_;
    QProcess locale_; // the system's keyboard settings mutter starts with
    QProcess mutter_;
    QString error_;
    QString display_; // mutter's XWayland
};

} // namespace ombry::test
