#include "SessionBus.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <sys/stat.h>

namespace ombry::test {

bool SessionBus::start(bool activation) {
    if (!runtime_.isValid()) return false;
    ::chmod(QFile::encodeName(runtime_.path()).constData(), 0700);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime_.path()));
    qunsetenv("NO_AT_BRIDGE");
    QStringList args{"--session", "--nofork", "--print-address"};
    if (!activation) {
        const QString config = runtime_.filePath("bus.conf");
        if (!writeConfig(config, "unix:tmpdir=/tmp")) return false;
        args[0] = "--config-file=" + config;
    }
    daemon_.start("dbus-daemon", args);
    if (!daemon_.waitForStarted(5000) || !daemon_.waitForReadyRead(5000)) {
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        return false;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", daemon_.readLine().trimmed());
    return true;
}

bool SessionBus::writeConfig(const QString& path, const QString& listen) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) &&
           file.write(
               "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
               "1.0//EN\"\n"
               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
               "<busconfig><type>session</type><listen>" +
               listen.toUtf8() +
               "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
               "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
               "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n") > 0;
}

bool SessionBus::owned(const QString& name) {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(name);
}

SessionBus::~SessionBus() {
    if (daemon_.state() == QProcess::NotRunning) return;
    daemon_.terminate();
    daemon_.waitForFinished(3000);
}

} // namespace ombry::test
