#include "SessionBus.h"

#include <QFile>
#include <sys/stat.h>

namespace ombry::test {

bool SessionBus::start() {
    if (!runtime_.isValid()) return false;
    ::chmod(QFile::encodeName(runtime_.path()).constData(), 0700);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime_.path()));
    qunsetenv("NO_AT_BRIDGE");
    daemon_.start(QStringLiteral("dbus-daemon"),
                  {QStringLiteral("--session"), QStringLiteral("--nofork"),
                   QStringLiteral("--print-address")});
    if (!daemon_.waitForStarted(5000) || !daemon_.waitForReadyRead(5000)) {
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        return false;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", daemon_.readLine().trimmed());
    return true;
}

SessionBus::~SessionBus() {
    if (daemon_.state() == QProcess::NotRunning) return;
    daemon_.terminate();
    daemon_.waitForFinished(3000);
}

} // namespace ombry::test
