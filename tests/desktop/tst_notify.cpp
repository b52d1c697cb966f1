// The freedesktop notifier against a fake notification service on a private session bus.
#include "platform/linux/LinuxPlatform.h"

#include <QDBusConnection>
#include <QProcess>
#include <QTest>
#include <QVariantMap>
#include <thread>

using namespace ombry;

// Plays org.freedesktop.Notifications and remembers every call.
class FakeNotificationService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QList<QStringList> calls; // app, replaces, icon, summary, body, timeout

public Q_SLOTS:
    uint Notify(const QString& app, uint replaces, const QString& icon, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap&, int timeout) {
        calls.append(
            {app, QString::number(replaces), icon, summary, body, QString::number(timeout)});
        return uint(calls.size());
    }
};

class TstNotify : public QObject {
    Q_OBJECT

    QProcess daemon_;

private Q_SLOTS:
    void cleanupTestCase() {
        daemon_.terminate();
        daemon_.waitForFinished(5000);
    }

    void realNotifierOverDBus() {
        // A private session bus, so that the test neither needs nor disturbs the user's.
        daemon_.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--session"), QStringLiteral("--nofork"),
                       QStringLiteral("--print-address=1")});
        if (!daemon_.waitForStarted(10000)) QSKIP("dbus-daemon is not available");
        QTRY_VERIFY_WITH_TIMEOUT(daemon_.canReadLine(), 10000);
        const QString address = QString::fromUtf8(daemon_.readLine()).trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8());
        const auto notifier = linux_platform::makeNotifier();

        // Nobody owns the notification name yet: the call goes nowhere, silently.
        notifier->post(QStringLiteral("perdu"), QString());

        FakeNotificationService service;
        QDBusConnection bus = QDBusConnection::connectToBus(address, QStringLiteral("fake"));
        QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &service,
                                   QDBusConnection::ExportAllSlots));
        QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));

        notifier->post(QStringLiteral("Crédits épuisés"), QStringLiteral("Recharge ton compte"));
        // The service answers on this thread's event loop, which has not turned yet: post()
        // returned without waiting for it.
        QVERIFY(service.calls.isEmpty());
        // From a thread that has no event loop of its own; the body is markup for the server:
        // what would start a tag or an entity is escaped.
        std::thread([&] {
            notifier->post(QStringLiteral("fil"), QStringLiteral("x < 2 & y > 3"));
        }).join();
        QTRY_COMPARE(service.calls.size(), 2);
        QVERIFY(service.calls.contains(QStringList(
            {"Ombry Voice", "0", "ombry-voice", "Crédits épuisés", "Recharge ton compte", "-1"})));
        QVERIFY(service.calls.contains(QStringList(
            {"Ombry Voice", "0", "ombry-voice", "fil", "x &lt; 2 &amp; y &gt; 3", "-1"})));
        QDBusConnection::disconnectFromBus(QStringLiteral("fake"));
    }
};

QTEST_GUILESS_MAIN(TstNotify)
#include "tst_notify.moc"
