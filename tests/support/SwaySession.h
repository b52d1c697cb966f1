#pragma once

#include "DesktopSession.h"
#include "FieldProcess.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <sys/types.h>

class QProcess;

namespace ombry::test {

// A private headless sway (wlroots) for the tests of the Wayland services: no screen, no input
// device, a software renderer. sway refuses to run as root, so a root test process runs it as
// the unprivileged user "ombrytest" (made once, when missing) in a fresh runtime folder of that
// user; root still connects to its sockets. A long-lived wtype keeps a keyboard on the seat (a
// seat without one loses the first key of a new keyboard).
//
// start() sets WAYLAND_DISPLAY, XDG_RUNTIME_DIR and SWAYSOCK in this process's environment, so
// the services of the program and every program started here (wl-copy, wl-paste, the target)
// use this compositor. stop() or the destructor ends everything it started.
class SwaySession {
public:
    SwaySession() = default;
    ~SwaySession();
    SwaySession(const SwaySession&) = delete;
    SwaySession& operator=(const SwaySession&) = delete;

    // sway, wtype and wl-clipboard are installed.
    static bool installed();
    // The unprivileged user "ombrytest", made when missing.
    static bool testUser(uid_t& uid, gid_t& gid);

    bool start();
    void stop();
    // Lines added to sway's configuration at the next start (bindings of a test).
    QByteArray extraConfig;
    bool running() const { return sway_ > 0; }
    QString error() const { return error_; }

    // Runs a program of the session while the event loop turns.
    using Result = DesktopSession::Result;
    static Result run(const QString& program, const QStringList& args, int timeoutMs = 5000) {
        return DesktopSession::run(program, args, timeoutMs);
    }

    // A program left running until the end of the session (a wl-copy that serves a selection).
    QProcess* launch(const QString& program, const QStringList& args);

    // The application in front, once opened.
    FieldProcess field;

private:
    pid_t sway_ = 0;
    QString runtimeDir_;
    QString error_;
    QList<QProcess*> children_;
};

} // namespace ombry::test
