#include "KdeSession.h"

#include "Processes.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <QUrl>

namespace ombry::test {
namespace {

const QString kCompositor = "/usr/bin/kwin_wayland";
const QString kKdePortal =
    "/usr/share/dbus-1/services/org.freedesktop.impl.portal.desktop.kde.service";
const QString kPython = "/usr/bin/python3";
const QByteArray kSocket = "wayland-ombry";

} // namespace

KdeSession::~KdeSession() {
    stop();
}

bool KdeSession::installed() {
    return QFile::exists(kCompositor) && QFile::exists(kKdePortal) && QFile::exists(kPython) &&
           QFile::exists("/usr/share/dbus-1/services/org.freedesktop.portal.Desktop.service");
}

bool KdeSession::start() {
    if (!dir_.isValid()) {
        error_ = "pas de dossier temporaire";
        return false;
    }
    // A shortcut whose keys an earlier run took is stored unassigned and never fires: the
    // desktop's settings start empty each time.
    const QString config = dir_.filePath("config");
    QDir().mkpath(config);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(config));
    qputenv("XDG_CURRENT_DESKTOP", "KDE");
    qputenv("XDG_SESSION_TYPE", "wayland");
    qputenv("KDE_FULL_SESSION", "true");
    qputenv("KDE_SESSION_VERSION", "5");
    qputenv("WAYLAND_DISPLAY", kSocket);
    qputenv("QT_QPA_PLATFORM", "wayland");
    qputenv("LIBGL_ALWAYS_SOFTWARE", "1");
    // The layout of the program's users: the desktop types é and à from their own keys.
    qputenv("XKB_DEFAULT_LAYOUT", "fr");
    qunsetenv("DISPLAY");
    if (!bus_.start()) {
        error_ = "le bus de session n'a pas démarré";
        return false;
    }
    // The compositor's file capability (cap_sys_resource) is refused at exec in a container;
    // a copy has none.
    const QString compositor = dir_.filePath("kwin_wayland");
    if (!QFile::copy(kCompositor, compositor)) {
        error_ = "copie de kwin_wayland impossible";
        return false;
    }
    // With its X server (XWayland), as a Plasma session has one: the socket it adds is its
    // display.
    const QDir xSockets("/tmp/.X11-unix");
    const QStringList xBefore = xSockets.entryList(QDir::System);
    compositor_ = spawn({QFile::encodeName(compositor), "--virtual", "--xwayland", "--width",
                         "1280", "--height", "800", "--socket", kSocket, "--no-lockscreen"},
                        QFile::encodeName(dir_.filePath("kwin.log")));
    const QString socket =
        QDir(qEnvironmentVariable("XDG_RUNTIME_DIR")).filePath(QString::fromLatin1(kSocket));
    const bool ready = QTest::qWaitFor(
        [&] { return QFile::exists(socket) && SessionBus::owned("org.kde.kglobalaccel"); }, 20000);
    QString display;
    const bool xReady = ready && QTest::qWaitFor(
                                     [&] {
                                         for (const QString& x : xSockets.entryList(QDir::System))
                                             if (!xBefore.contains(x) && x.startsWith('X'))
                                                 display = QLatin1Char(':') + x.mid(1);
                                         return !display.isEmpty();
                                     },
                                     10000);
    if (xReady) qputenv("DISPLAY", display.toUtf8());
    if (!ready) {
        error_ = "kwin_wayland n'a pas démarré : " + QString::fromUtf8(compositorLog().right(2000));
        stop();
        return false;
    }
    return true;
}

void KdeSession::stop() {
    field.close();
    if (keyboard_.state() != QProcess::NotRunning) {
        keyboard_.kill();
        keyboard_.waitForFinished(3000);
    }
    end(compositor_);
}

QByteArray KdeSession::compositorLog() const {
    QFile log(dir_.filePath("kwin.log"));
    return log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
}

std::optional<double> KdeSession::keys(const char* verb, const QList<int>& codes) {
    // The next line the keyboard prints, within the time.
    auto line = [this](int timeoutMs) {
        (void)QTest::qWaitFor([this] { return keyboard_.canReadLine(); }, timeoutMs);
        return keyboard_.readLine().trimmed();
    };
    if (keyboard_.state() == QProcess::NotRunning) {
        keyboard_.start(kPython, {QStringLiteral(OMBRY_KDE_KEYS)});
        if (line(20000) != "ready") {
            error_ = QString::fromUtf8(keyboard_.readAllStandardError());
            return std::nullopt;
        }
    }
    QByteArray command = verb;
    for (const int c : codes)
        command += ' ' + QByteArray::number(c);
    keyboard_.write(command + '\n');
    const QByteArray answer = line(5000);
    if (!answer.startsWith("sent ")) return std::nullopt;
    return answer.mid(5).toDouble();
}

} // namespace ombry::test
