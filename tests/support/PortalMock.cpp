#include "PortalMock.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

namespace ombry::test {
namespace {

const QString kName = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kControl = QStringLiteral("org.ombry.test.PortalMock");
const QString kPython = QStringLiteral("/usr/bin/python3");

QDBusMessage control(const QString& method, const QVariantList& args = {}) {
    QDBusMessage m = QDBusMessage::createMethodCall(kName, kPath, kControl, method);
    m.setArguments(args);
    m.setAutoStartService(false);
    return QDBusConnection::sessionBus().call(m, QDBus::Block, 5000);
}

} // namespace

PortalMock::~PortalMock() {
    stop();
}

bool PortalMock::installed() {
    if (!QFile::exists(kPython)) return false;
    QProcess probe;
    probe.start(kPython, {QStringLiteral("-c"), QStringLiteral("import dbusmock")});
    return probe.waitForFinished(10000) && probe.exitCode() == 0;
}

bool PortalMock::start(const QVariantMap& settings) {
    QStringList args{QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--session"),
                     QStringLiteral("--template"), QStringLiteral(OMBRY_PORTAL_MOCK)};
    process_.setStandardOutputFile(QProcess::nullDevice());
    process_.start(kPython, args);
    if (!process_.waitForStarted(5000)) return false;
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    QElapsedTimer clock;
    clock.start();
    while (!bus->isServiceRegistered(kName)) {
        if (clock.elapsed() > 10000 || process_.state() == QProcess::NotRunning) return false;
        QThread::msleep(20);
    }
    if (!settings.isEmpty()) configure(settings);
    return true;
}

void PortalMock::stop() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.terminate();
    if (!process_.waitForFinished(3000)) {
        process_.kill();
        process_.waitForFinished(3000);
    }
    // The name must be free before another mock takes it.
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    for (int i = 0; i < 250 && bus->isServiceRegistered(kName); ++i)
        QThread::msleep(20);
}

void PortalMock::configure(const QVariantMap& settings) {
    control(QStringLiteral("Configure"), {settings});
}

void PortalMock::press(const QString& id, bool down) {
    control(QStringLiteral("Press"), {id, down});
}

void PortalMock::changeTrigger(const QString& id, const QString& trigger) {
    control(QStringLiteral("ChangeTrigger"), {id, trigger});
}

void PortalMock::closeSessions() {
    control(QStringLiteral("CloseSessions"));
}

QList<QPair<int, uint>> PortalMock::keysyms() {
    QList<QPair<int, uint>> out;
    const QDBusMessage reply = control(QStringLiteral("Keysyms"));
    if (reply.arguments().isEmpty()) return out;
    const QDBusArgument arg = reply.arguments().constFirst().value<QDBusArgument>();
    arg.beginArray();
    while (!arg.atEnd()) {
        int keysym = 0;
        uint state = 0;
        arg.beginStructure();
        arg >> keysym >> state;
        arg.endStructure();
        out.append({keysym, state});
    }
    arg.endArray();
    return out;
}

QVariantMap PortalMock::lastOptions(const QString& method) {
    const QDBusMessage reply = control(QStringLiteral("LastOptions"), {method});
    if (reply.arguments().isEmpty()) return {};
    return qdbus_cast<QVariantMap>(reply.arguments().constFirst());
}

} // namespace ombry::test
