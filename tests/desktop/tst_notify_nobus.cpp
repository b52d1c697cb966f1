// Without any session bus, posting a notification does nothing and returns.
#include "platform/linux/LinuxPlatform.h"

#include <QTest>

class TstNotifyNoBus : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void silentWithoutABus() {
        const auto notifier = ombry::linux_platform::makeNotifier();
        notifier->post(QStringLiteral("Titre"), QStringLiteral("Corps"));
        notifier->post(QStringLiteral("Titre"), QStringLiteral("Corps"));
    }
};

int main(int argc, char** argv) {
    // Before the application exists: nothing may find a bus, not even by autolaunch.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/ombry-test-bus");
    qunsetenv("DISPLAY");
    QCoreApplication app(argc, argv);
    TstNotifyNoBus test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_notify_nobus.moc"
