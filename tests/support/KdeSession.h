#pragma once

#include "FieldProcess.h"
#include "SessionBus.h"

#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <optional>
#include <sys/types.h>

namespace ombry::test {

// A headless KDE Plasma 5.27 desktop for the tests that need a real Wayland one: kwin_wayland
// on a virtual output with its XWayland (DISPLAY is set when it comes up), on a private session bus
// from which the desktop portals (xdg-desktop-portal, xdg-desktop-portal-kde) are started on
// demand; a Qt text field as the application in front; and a keyboard that presses keys through the
// desktop's RemoteDesktop portal (kde_keys.py), as a real keyboard would for the compositor.
//
// start() sets this process's environment to the session's (WAYLAND_DISPLAY,
// XDG_CURRENT_DESKTOP=KDE, a fresh XDG_CONFIG_HOME, the French keyboard layout...) before the
// bus starts, since the portals inherit the bus's environment: call it before anything uses the
// session bus. Programs started afterwards, the program under test included, are in the
// session. Everything it started ends with stop() or the destructor.
class KdeSession {
public:
    KdeSession() = default;
    ~KdeSession();
    KdeSession(const KdeSession&) = delete;
    KdeSession& operator=(const KdeSession&) = delete;

    // Whether kwin_wayland, the KDE portal and Debian's python3 with dbus are installed.
    static bool installed();
    bool start();
    void stop();
    QString error() const { return error_; }
    // The compositor's log, for a test's failure message.
    QByteArray compositorLog() const;

    // The application in front, once opened.
    FieldProcess field;

    // Presses or releases keys (Linux evdev codes: 29 Left Ctrl, 56 Left Alt, 32 D) in order;
    // gives the wall-clock time (ms) at which the first one was sent, nullopt on failure.
    std::optional<double> keysDown(const QList<int>& codes) { return keys("down", codes); }
    std::optional<double> keysUp(const QList<int>& codes) { return keys("up", codes); }

private:
    std::optional<double> keys(const char* verb, const QList<int>& codes);

    QTemporaryDir dir_;
    SessionBus bus_;
    pid_t compositor_ = 0;
    QProcess keyboard_;
    QString error_;
};

} // namespace ombry::test
