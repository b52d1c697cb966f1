// The freedesktop notifier against a fake notification service on a private session bus.
#include "platform/linux/LinuxPlatform.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
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
    struct Call {
        QString app, icon, summary, body;
        uint replaces;
        int timeout;
    };
    QList<Call> calls;

public Q_SLOTS:
    uint Notify(const QString& app, uint replaces, const QString& icon, const QString& summary,
                const QString& body, const QStringList&, const QVariantMap&, int timeout) {
        calls.append({app, icon, summary, body, replaces, timeout});
        return uint(calls.size());
    }
};

class TstNotify : public QObject {
    Q_OBJECT

    QProcess daemon_;
    QString address_;

private Q_SLOTS:
    void initTestCase() {
        // A private session bus, so that the test neither needs nor disturbs the user's.
        daemon_.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--session"), QStringLiteral("--nofork"),
                       QStringLiteral("--print-address=1")});
        if (!daemon_.waitForStarted(10000)) QSKIP("dbus-daemon is not available");
        QTRY_VERIFY_WITH_TIMEOUT(daemon_.canReadLine(), 10000);
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
        QVERIFY(!address_.isEmpty());
        qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toUtf8());
    }

    void cleanupTestCase() {
        daemon_.terminate();
        daemon_.waitForFinished(5000);
    }

    void realNotifierOverDBus() {
        const auto notifier = linux_platform::makeNotifier();

        // Nobody owns the notification name yet: the call goes nowhere, silently.
        notifier->post(QStringLiteral("perdu"), QString());

        FakeNotificationService service;
        QDBusConnection bus = QDBusConnection::connectToBus(address_, QStringLiteral("fake"));
        QVERIFY(bus.isConnected());
        QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &service,
                                   QDBusConnection::ExportAllSlots));
        QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));

        notifier->post(QStringLiteral("Crédits épuisés"), QStringLiteral("Recharge ton compte"));
        // The service answers on this thread's event loop, which has not turned yet: post()
        // returned without waiting for it.
        QVERIFY(service.calls.isEmpty());
        QTRY_COMPARE(service.calls.size(), 1);
        const auto& c = service.calls.first();
        QCOMPARE(c.app, QStringLiteral("Ombry Voice"));
        QCOMPARE(c.icon, QStringLiteral("ombry-voice"));
        QCOMPARE(c.summary, QStringLiteral("Crédits épuisés"));
        QCOMPARE(c.body, QStringLiteral("Recharge ton compte"));
        QCOMPARE(c.replaces, 0u);
        QCOMPARE(c.timeout, -1);

        // From a thread that has no event loop of its own.
        std::thread worker([&] { notifier->post(QStringLiteral("fil"), QStringLiteral("b")); });
        worker.join();
        QTRY_COMPARE(service.calls.size(), 2);
        QCOMPARE(service.calls.last().summary, QStringLiteral("fil"));

        bus.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        QDBusConnection::disconnectFromBus(QStringLiteral("fake"));
    }
};

QTEST_GUILESS_MAIN(TstNotify)
#include "tst_notify.moc"
