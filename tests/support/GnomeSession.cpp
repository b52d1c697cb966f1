#include "GnomeSession.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QThread>

namespace ombry::test {
namespace {

const QString kDisplay = QStringLiteral("wayland-ombry-gnome");

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(20);
    }
    return true;
}

QString supportFile(const QString& name) {
    return QStringLiteral(OMBRY_TEST_SUPPORT_DIR "/") + name;
}

} // namespace

GnomeSession::~GnomeSession() {
    for (QProcess* p : {&field_, &mutter_}) {
        if (p->state() == QProcess::NotRunning) continue;
        p->terminate();
        if (!p->waitForFinished(3000)) p->kill();
        p->waitForFinished(1000);
    }
}

bool GnomeSession::installed() {
    return !QStandardPaths::findExecutable(QStringLiteral("mutter")).isEmpty() &&
           QFile::exists(QStringLiteral("/usr/libexec/xdg-desktop-portal-gnome")) &&
           QFile::exists(QStringLiteral("/usr/share/xdg-desktop-portal/portals/gnome.portal"));
}

bool GnomeSession::start() {
    // Only the GNOME and GTK backends of the portals: with others installed (KDE's), the
    // portal would fall back to them.
    for (const char* name : {"gnome.portal", "gtk.portal"}) {
        const QString from =
            QStringLiteral("/usr/share/xdg-desktop-portal/portals/") + QLatin1String(name);
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
        error_ = QStringLiteral("bus de session privé impossible");
        return false;
    }
    mutter_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    mutter_.setStandardOutputFile(QProcess::nullDevice());
    mutter_.start(QStringLiteral("mutter"),
                  {QStringLiteral("--wayland"), QStringLiteral("--headless"),
                   QStringLiteral("--no-x11"), QStringLiteral("--virtual-monitor"),
                   QStringLiteral("1280x800"), QStringLiteral("--wayland-display"), kDisplay});
    const QString socket = QDir(qEnvironmentVariable("XDG_RUNTIME_DIR")).filePath(kDisplay);
    const bool up = waitUntil(
        [&] {
            return QFile::exists(socket) &&
                   QDBusConnection::sessionBus().interface()->isServiceRegistered(
                       QStringLiteral("org.gnome.Mutter.RemoteDesktop"));
        },
        15000);
    if (!up) {
        error_ = QStringLiteral("mutter ne démarre pas");
        return false;
    }
    // By its whole path: the sound server of the test takes XDG_RUNTIME_DIR for itself.
    qputenv("WAYLAND_DISPLAY", QFile::encodeName(socket));
    return true;
}

bool GnomeSession::openField(const QString& clipboard) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    field_.setProcessEnvironment(env);
    field_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&field_, &QProcess::readyReadStandardOutput, [this] { readField(); });
    field_.start(QStringLiteral(OMBRY_TEST_FIELD), {clipboard});
    return waitUntil([this] { return ready_; }, 15000);
}

void GnomeSession::readField() {
    fieldOut_ += field_.readAllStandardOutput();
    qsizetype end;
    while ((end = fieldOut_.indexOf('\n')) >= 0) {
        const QByteArray line = fieldOut_.left(end);
        fieldOut_.remove(0, end + 1);
        const qsizetype space = line.indexOf(' ');
        const QByteArray what = line.left(space);
        const QString value =
            QJsonDocument::fromJson("[" + line.mid(space + 1) + "]").array().at(0).toString();
        if (what == "TEXT") text_ = value;
        if (what == "CLIP") clipboard_ = value;
        if (what == "READY") ready_ = true;
    }
}

QString GnomeSession::fieldText() {
    QCoreApplication::processEvents();
    return text_;
}

QString GnomeSession::fieldClipboard() {
    QCoreApplication::processEvents();
    return clipboard_;
}

bool GnomeSession::answerConsentDialog(int timeoutMs) {
    return waitUntil(
        [] {
            QProcess answer;
            answer.start(QStringLiteral("/usr/bin/python3"),
                         {supportFile(QStringLiteral("wayland/answer_portal_dialog.py"))});
            return answer.waitForFinished(10000) && answer.exitCode() == 0;
        },
        timeoutMs);
}

} // namespace ombry::test
