#include "GnomeSession.h"

#include "DesktopSession.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace ombry::test {
namespace {

const QString kDisplay = "wayland-ombry-gnome";

QString supportFile(const QString& name) {
    return QStringLiteral(OMBRY_TEST_SUPPORT_DIR "/") + name;
}

} // namespace

GnomeSession::~GnomeSession() {
    field.close();
    for (QProcess* p : {&mutter_, &locale_}) {
        if (p->state() == QProcess::NotRunning) continue;
        p->terminate();
        if (!p->waitForFinished(3000)) p->kill();
        p->waitForFinished(1000);
    }
}

bool GnomeSession::installed() {
    return !QStandardPaths::findExecutable("mutter").isEmpty() &&
           QFile::exists("/usr/libexec/xdg-desktop-portal-gnome") &&
           QFile::exists("/usr/share/xdg-desktop-portal/portals/gnome.portal");
}

bool GnomeSession::start() {
    // Only the GNOME and GTK backends of the portals: with others installed (KDE's), the
    // portal would fall back to them.
    for (const char* name : {"gnome.portal", "gtk.portal"}) {
        const QString from = "/usr/share/xdg-desktop-portal/portals/" + QLatin1String(name);
        if (QFile::exists(from)) QFile::copy(from, portals_.filePath(QLatin1String(name)));
    }
    // Set before the bus starts: the portals it activates inherit its environment.
    qputenv("XDG_DESKTOP_PORTAL_DIR", portals_.path().toUtf8());
    qputenv("XDG_CURRENT_DESKTOP", "GNOME");
    qputenv("XDG_SESSION_TYPE", "wayland");
    qputenv("WAYLAND_DISPLAY", kDisplay.toUtf8());
    qputenv("GDK_BACKEND", "wayland");
    qputenv("GSETTINGS_BACKEND", "memory");
    qputenv("GTK_A11Y", "atspi");
    qunsetenv("DISPLAY");
    if (!bus_.start()) {
        error_ = "bus de session privé impossible";
        return false;
    }
    // With its X server (XWayland), as a GNOME session has one: it says which display it took.
    mutter_.setProcessChannelMode(QProcess::MergedChannels);
    QByteArray said;
    QObject::connect(&mutter_, &QProcess::readyRead, [this, &said] {
        said += mutter_.readAll();
        const qsizetype at = said.indexOf("Using public X11 display ");
        if (at >= 0 && display_.isEmpty()) {
            const QByteArray rest = said.mid(at + 25);
            const qsizetype end = rest.indexOf(',');
            if (end > 0) display_ = QString::fromLatin1(rest.left(end));
        }
    });
    // A French user's layout: mutter reads it from the system's keyboard settings, here a mock
    // on the private bus that mutter takes for the system bus.
    locale_.start("/usr/bin/python3", {supportFile("wayland/locale1_mock.py")});
    if (!DesktopSession::waitUntil([] { return SessionBus::owned("org.freedesktop.locale1"); },
                                   10000)) {
        error_ = "réglages du clavier factices absents";
        return false;
    }
    QProcessEnvironment mutterEnv = QProcessEnvironment::systemEnvironment();
    mutterEnv.insert("DBUS_SYSTEM_BUS_ADDRESS", qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
    mutter_.setProcessEnvironment(mutterEnv);
    mutter_.start("mutter", {"--wayland", "--headless", "--virtual-monitor", "1280x800",
                             "--wayland-display", kDisplay});
    const QString socket = QDir(qEnvironmentVariable("XDG_RUNTIME_DIR")).filePath(kDisplay);
    const bool up = DesktopSession::waitUntil(
        [&] {
            return QFile::exists(socket) && !display_.isEmpty() &&
                   SessionBus::owned("org.gnome.Mutter.RemoteDesktop");
        },
        15000);
    if (!up) {
        error_ = "mutter ne démarre pas";
        return false;
    }
    QObject::disconnect(&mutter_, &QProcess::readyRead, nullptr, nullptr);
    mutter_.setReadChannel(QProcess::StandardOutput);
    QObject::connect(&mutter_, &QProcess::readyRead, [this] { mutter_.readAll(); });
    // By its whole path: the sound server of the test takes XDG_RUNTIME_DIR for itself.
    qputenv("WAYLAND_DISPLAY", QFile::encodeName(socket));
    qputenv("DISPLAY", display_.toUtf8());
    // XWayland admits the clients that show mutter's cookie.
    const QStringList cookies =
        QDir(QFileInfo(socket).path())
            .entryList({".mutter-Xwaylandauth.*"}, QDir::Files | QDir::Hidden);
    if (!cookies.isEmpty())
        qputenv("XAUTHORITY", QFile::encodeName(QFileInfo(socket).dir().filePath(cookies.first())));
    return true;
}

bool GnomeSession::typeKeys(const QStringList& keysyms) {
    QProcess keys;
    keys.start("/usr/bin/python3", QStringList{supportFile("wayland/mutter_keys.py")} + keysyms);
    return keys.waitForFinished(10000) && keys.exitCode() == 0;
}

bool GnomeSession::answerConsentDialog(int timeoutMs) {
    return DesktopSession::waitUntil(
        [] {
            QProcess answer;
            answer.start("/usr/bin/python3", {supportFile("wayland/answer_portal_dialog.py")});
            const bool done = answer.waitForFinished(10000) && answer.exitCode() == 0;
            return done;
        },
        timeoutMs);
}

} // namespace ombry::test
