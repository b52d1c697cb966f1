#include "PortalMock.h"
#include "SessionBus.h"

#include <QDBusConnection>
#include <QFile>
#include <QTest>
#include <csignal>
#include <sys/prctl.h>

namespace ombry::test {
namespace {
const QString kName = "org.freedesktop.portal.Desktop";
const QString kPython = "/usr/bin/python3";

} // namespace

bool PortalMock::installed() {
    QProcess probe;
    probe.start(kPython, {"-c", "import dbusmock"});
    return probe.waitForFinished(10000) && probe.exitStatus() == QProcess::NormalExit &&
           probe.exitCode() == 0;
}

bool PortalMock::start() {
    process_.setStandardOutputFile(QProcess::nullDevice());
    // The mock outlives its bus: it ends with this process, even one that crashed.
    process_.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process_.start(
        kPython, {"-m", "dbusmock", "--session", "--template", QStringLiteral(OMBRY_PORTAL_MOCK)});
    return process_.waitForStarted(5000) &&
           QTest::qWaitFor([] { return SessionBus::owned(kName); }, 10000);
}

void PortalMock::stop() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.kill();
    process_.waitForFinished(3000);
    (void)QTest::qWaitFor([] { return !SessionBus::owned(kName); }, 5000);
}

QDBusMessage PortalMock::call(const QString& method, const QVariantList& args) {
    QDBusMessage m = QDBusMessage::createMethodCall(kName, "/org/freedesktop/portal/desktop",
                                                    "org.ombry.test.PortalMock", method);
    m.setArguments(args);
    return QDBusConnection::sessionBus().call(m, QDBus::Block, 5000);
}

} // namespace ombry::test
