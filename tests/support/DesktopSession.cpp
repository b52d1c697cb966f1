// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include "DesktopSession.h"
#include "Processes.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput.h>
#include <X11/extensions/XTest.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ombry::test {

namespace {

DesktopSession* currentSession = nullptr;

Display* dpy(void* connection) {
    return static_cast<Display*>(connection);
}

std::optional<Window> rootWindowProperty(Display* display, const char* name) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    const Atom property = XInternAtom(display, name, False);
    if (XGetWindowProperty(display, DefaultRootWindow(display), property, 0, 1, False, XA_WINDOW,
                           &type, &format, &count, &after, &data) != Success)
        return std::nullopt;
    std::optional<Window> out;
    if (data && format == 32 && count == 1) out = Window(reinterpret_cast<unsigned long*>(data)[0]);
    if (data) XFree(data);
    return out;
}

} // namespace

DesktopSession::DesktopSession() {
    currentSession = this;
}

DesktopSession::~DesktopSession() {
    stop();
    if (currentSession == this) currentSession = nullptr;
}

DesktopSession* DesktopSession::current() {
    return currentSession;
}

bool DesktopSession::xvfbInstalled() {
    return !QStandardPaths::findExecutable("Xvfb").isEmpty();
}

bool DesktopSession::start(bool windowManager) {
    if (running()) return true;
    if (!xvfbInstalled()) {
        error_ = "Xvfb n'est pas installé";
        return false;
    }
    // Xvfb picks a free display number itself and writes it to the pipe once it accepts
    // connections: no race with the other tests running at the same time.
    int fds[2];
    if (pipe(fds) != 0) {
        error_ = QString("pipe: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    xvfb_ = spawn({"Xvfb", "-displayfd", QByteArray::number(fds[1]), "-screen", "0", "1280x800x24",
                   "-nolisten", "tcp", "-noreset"});
    close(fds[1]);
    QByteArray number;
    pollfd p{fds[0], POLLIN, 0};
    QElapsedTimer clock;
    clock.start();
    while (xvfb_ > 0 && !number.contains('\n') && clock.elapsed() < 15000) {
        if (poll(&p, 1, 100) > 0) {
            char buffer[32];
            const ssize_t n = read(fds[0], buffer, sizeof buffer);
            if (n <= 0) break; // the server went away before it was ready
            number.append(buffer, n);
        }
    }
    close(fds[0]);
    if (!number.contains('\n')) {
        end(xvfb_);
        error_ = "Xvfb n'a pas démarré";
        return false;
    }
    display_ = ":" + QString::fromLatin1(number.trimmed());
    qputenv("DISPLAY", display_.toLatin1());
    // An X11 session of its own: no Wayland, GTK on X11, no accessibility bus to wait for.
    qunsetenv("WAYLAND_DISPLAY");
    qputenv("XDG_SESSION_TYPE", "x11");
    qputenv("GDK_BACKEND", "x11");
    qputenv("NO_AT_BRIDGE", "1");

    connection_ = XOpenDisplay(display_.toLatin1().constData());
    if (!connection_) {
        stop();
        error_ = QString("pas de connexion à Xvfb %1").arg(display_);
        return false;
    }
    if (windowManager) {
        windowManager_ = spawn({"openbox", "--sm-disable"});
        bool ready = false;
        for (int i = 0; i < 500 && windowManager_ > 0 && !ready; ++i) {
            ready = rootWindowProperty(dpy(connection_), "_NET_SUPPORTING_WM_CHECK").has_value();
            if (!ready) usleep(20000);
        }
        if (!ready) {
            stop();
            error_ = "openbox n'a pas démarré";
            return false;
        }
    }
    return true;
}

void DesktopSession::endPrograms() {
    for (QProcess* child : std::as_const(children_)) {
        if (child->state() != QProcess::NotRunning) {
            child->kill();
            child->waitForFinished(2000);
        }
        delete child;
    }
    children_.clear();
    target_ = nullptr;
    targetWindow_ = 0;
}

void DesktopSession::stop() {
    endPrograms();
    if (keyboard_) {
        XCloseDevice(dpy(connection_), static_cast<XDevice*>(keyboard_));
        keyboard_ = nullptr;
    }
    if (connection_) {
        XCloseDisplay(dpy(connection_));
        connection_ = nullptr;
    }
    end(windowManager_);
    end(xvfb_);
}

bool DesktopSession::waitUntil(const std::function<bool()>& condition, int timeoutMs) {
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeoutMs) return false;
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

DesktopSession::Result DesktopSession::run(const QString& program, const QStringList& args,
                                           int timeoutMs) {
    Result result;
    QProcess process;
    process.start(program, args);
    if (!process.waitForStarted(5000)) return result;
    process.closeWriteChannel();
    result.finished = waitUntil([&] { return process.state() == QProcess::NotRunning; }, timeoutMs);
    if (!result.finished) {
        process.kill();
        process.waitForFinished(2000);
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

qulonglong DesktopSession::activeWindow() const {
    if (!connection_) return 0;
    return rootWindowProperty(dpy(connection_), "_NET_ACTIVE_WINDOW").value_or(0);
}

bool DesktopSession::activateWindow(qulonglong window) {
    if (!xdotool({"windowactivate", "--sync", QString::number(window)})) return false;
    return waitUntil([&] { return activeWindow() == window; });
}

bool DesktopSession::openTarget(const QString& title) {
    if (!running()) return false;
    auto* zenity = new QProcess;
    children_ << zenity;
    zenity->start("zenity", {"--entry", "--title=" + title});
    if (!zenity->waitForStarted(5000)) {
        error_ = "zenity ne démarre pas";
        return false;
    }
    // xdotool's search fails with BadWindow when a window it walks goes away meanwhile (a
    // program of the test that ends or restarts): it is asked again.
    Result found;
    for (int attempt = 0; attempt < 3; ++attempt) {
        found = run("xdotool", {"search", "--sync", "--name", QString("^%1$").arg(title)}, 10000);
        if (found.finished && found.exitCode == 0) break;
    }
    const QList<QByteArray> ids = found.out.split('\n');
    if (!found.finished || ids.value(0).trimmed().isEmpty()) {
        // What xdotool said, and whether zenity still runs, tell a slow start from a failure.
        error_ = QString("pas de fenêtre « %1 » (xdotool %2 : %3 ; zenity %4)")
                     .arg(title, found.finished ? QString::number(found.exitCode) : "sans réponse",
                          QString::fromLocal8Bit(found.err.trimmed()),
                          QString(zenity->state() == QProcess::Running ? "lancé" : "terminé"));
        return false;
    }
    target_ = zenity;
    targetWindow_ = ids.value(0).trimmed().toULongLong();
    if (!activateWindow(targetWindow_)) {
        error_ = QString("la fenêtre « %1 » ne devient pas active").arg(title);
        return false;
    }
    // The field takes the keys once GTK has its focus: wait for the server's focus, then let
    // the toolkit see the FocusIn.
    const bool focused = waitUntil([&] {
        Window focus = None;
        int revert = 0;
        XGetInputFocus(dpy(connection_), &focus, &revert);
        // GTK focuses a child of its top-level window.
        while (focus != None && focus != PointerRoot && focus != Window(targetWindow_)) {
            Window root = None, parent = None, *children = nullptr;
            unsigned count = 0;
            if (!XQueryTree(dpy(connection_), focus, &root, &parent, &children, &count)) break;
            if (children) XFree(children);
            focus = parent == root ? None : parent;
        }
        return focus == Window(targetWindow_);
    });
    QTest::qWait(150);
    if (!focused) error_ = QString("la fenêtre « %1 » n'a pas le focus").arg(title);
    return focused;
}

qint64 DesktopSession::targetPid() const {
    return target_ ? target_->processId() : 0;
}

bool DesktopSession::targetRunning() const {
    return target_ && target_->state() == QProcess::Running;
}

std::optional<QString> DesktopSession::closeTarget(int timeoutMs) {
    if (!target_) return std::nullopt;
    QProcess* zenity = target_;
    if (!xdotool({"key", "Return"})) return std::nullopt;
    if (!waitUntil([&] { return zenity->state() == QProcess::NotRunning; }, timeoutMs))
        return std::nullopt;
    QString text = QString::fromUtf8(zenity->readAllStandardOutput());
    if (text.endsWith(QLatin1Char('\n'))) text.chop(1);
    target_ = nullptr;
    targetWindow_ = 0;
    return text;
}

int DesktopSession::keycode(const char* keysymName) {
    if (!connection_) return 0;
    const KeySym sym = XStringToKeysym(keysymName);
    return sym == NoSymbol ? 0 : XKeysymToKeycode(dpy(connection_), sym);
}

bool DesktopSession::keyboardKey(int keycode, bool down) {
    if (!keyboard_ && connection_) { // the device is opened at its first key
        int count = 0;
        XDeviceInfo* devices = XListInputDevices(dpy(connection_), &count);
        for (int i = 0; i < count && !keyboard_; ++i)
            if (devices[i].use == IsXExtensionKeyboard && devices[i].name &&
                std::strcmp(devices[i].name, "Xvfb keyboard") == 0)
                keyboard_ = XOpenDevice(dpy(connection_), devices[i].id);
        if (devices) XFreeDeviceList(devices);
    }
    if (!keyboard_ || keycode <= 0) return false;
    XTestFakeDeviceKeyEvent(dpy(connection_), static_cast<XDevice*>(keyboard_), unsigned(keycode),
                            down, nullptr, 0, CurrentTime);
    XSync(dpy(connection_), False);
    return true;
}

bool DesktopSession::keyboardChord(const QList<int>& keycodes) {
    for (const int kc : keycodes)
        if (!keyboardPress(kc)) return false;
    for (auto it = keycodes.crbegin(); it != keycodes.crend(); ++it)
        if (!keyboardRelease(*it)) return false;
    return true;
}

bool DesktopSession::keyboardType(const QString& text) {
    for (const QChar c : text) {
        const QByteArray name = QString(c).toLatin1();
        if (!keyboardChord({keycode(name.constData())})) return false;
    }
    return true;
}

bool DesktopSession::setClipboard(const QByteArray& bytes, const QString& target,
                                  const QString& selection) {
    auto* xclip = new QProcess;
    children_ << xclip;
    QStringList args{"-quiet", "-selection", selection, "-i"};
    if (!target.isEmpty()) args << "-t" << target;
    xclip->start("xclip", args);
    if (!xclip->waitForStarted(5000)) return false;
    xclip->write(bytes);
    xclip->closeWriteChannel();
    // It owns the selection once it has read its input; the owner is then its window.
    const Atom atom = XInternAtom(
        dpy(connection_), selection == QLatin1String("clipboard") ? "CLIPBOARD" : "PRIMARY", False);
    const Window before = XGetSelectionOwner(dpy(connection_), atom);
    return waitUntil([&] {
        const Window owner = XGetSelectionOwner(dpy(connection_), atom);
        return owner != None && owner != before && xclip->state() == QProcess::Running;
    });
}

std::optional<QByteArray> DesktopSession::readClipboard(const QString& target,
                                                        const QString& selection, int timeoutMs) {
    QStringList args{"-selection", selection, "-o"};
    if (!target.isEmpty()) args << "-t" << target;
    const Result r = run("xclip", args, timeoutMs);
    if (!r.finished || r.exitCode != 0) return std::nullopt;
    return r.out;
}

std::optional<QByteArray> DesktopSession::readClipboardAsManager(int timeoutMs) {
    if (!connection_) return std::nullopt;
    Display* display = dpy(connection_);
    if (!managerWindow_)
        managerWindow_ =
            XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    const Window window = Window(managerWindow_);
    XSetSelectionOwner(display, XInternAtom(display, "CLIPBOARD_MANAGER", False), window,
                       CurrentTime);
    const Atom property = XInternAtom(display, "OMBRY_COPY", False);
    XConvertSelection(display, XInternAtom(display, "CLIPBOARD", False),
                      XInternAtom(display, "UTF8_STRING", False), property, window, CurrentTime);
    XFlush(display);
    XEvent event;
    if (!waitUntil([&] { return XCheckTypedWindowEvent(display, window, SelectionNotify, &event); },
                   timeoutMs))
        return std::nullopt;
    if (event.xselection.property == None) return std::nullopt;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, window, property, 0, 1 << 20, True, AnyPropertyType, &type,
                           &format, &count, &after, &data) != Success)
        return std::nullopt;
    QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(count));
    if (data) XFree(data);
    return bytes;
}

} // namespace ombry::test
