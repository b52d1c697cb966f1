// The start of the desktop program: one program per user, and what the user is told when the
// dictation key cannot be heard.
#include "app/DesktopApp.h"
#include "app/SingleInstance.h"

#include <QFile>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;

class TstDesktopApp : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void secondStartTellsTheFirstAndStepsAside() {
        QTemporaryDir dir;
        SingleInstance first(dir.path());
        int told = 0;
        first.onAnotherStart = [&told] { ++told; };
        QVERIFY(first.claim());
        QVERIFY(QFile::exists(first.socketPath()));

        // Each later start finds the first, tells it and does not claim.
        for (int i = 1; i <= 2; ++i) {
            SingleInstance second(dir.path());
            QVERIFY(!second.claim());
            QTRY_COMPARE(told, i);
        }
        // A stranger on the socket that says something else is not a start.
        QLocalSocket stranger;
        stranger.connectToServer(first.socketPath());
        QVERIFY(stranger.waitForConnected(1000));
        stranger.write("bonjour\n");
        stranger.flush();
        QTest::qWait(100);
        QCOMPARE(told, 2);
    }

    void programThatDiedLeavesNothingInTheWay() {
        // A crash leaves the socket file and a lock whose process is gone.
        QTemporaryDir dir;
        QFile socket(dir.filePath(QStringLiteral("ombry-voice.sock")));
        QVERIFY(socket.open(QIODevice::WriteOnly));
        socket.close();
        QFile lock(dir.filePath(QStringLiteral("ombry-voice.lock")));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write("999999\nombry-voice\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        lock.close();

        SingleInstance next(dir.path());
        QVERIFY(next.claim());
        int told = 0;
        next.onAnotherStart = [&told] { ++told; };
        SingleInstance later(dir.path());
        QVERIFY(!later.claim());
        QTRY_COMPARE(told, 1);
    }

    void keyboardWarning_data() {
        QTest::addColumn<QString>("session");
        QTest::addColumn<bool>("running");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("expected"); // a word the warning holds; empty: no warning

        QTest::newRow("x11, hook runs") << "x11" << true << ""
                                        << "";
        QTest::newRow("unknown session, hook runs") << "" << true << ""
                                                    << "";
        QTest::newRow("hook refused, its reason")
            << "wayland" << false << "Session Wayland : pas de clavier global."
            << "pas de clavier";
        QTest::newRow("hook refused without a reason") << "x11" << false << ""
                                                       << "n'est pas";
        // XWayland hears only the keys typed into X11 windows.
        QTest::newRow("wayland, hook runs") << "Wayland" << true << ""
                                            << "X11";
    }

    void keyboardWarning() {
        QFETCH(QString, session);
        QFETCH(bool, running);
        QFETCH(QString, reason);
        QFETCH(QString, expected);
        const std::optional<QString> warning = ombry::keyboardWarning(session, running, reason);
        if (expected.isEmpty()) {
            QVERIFY(!warning);
        } else {
            QVERIFY(warning);
            QVERIFY2(warning->contains(expected), qPrintable(*warning));
        }
    }

    void noDisplayNoDesktop() {
        const QByteArray display = qgetenv("DISPLAY"), wayland = qgetenv("WAYLAND_DISPLAY"),
                         qpa = qgetenv("QT_QPA_PLATFORM");
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        qunsetenv("QT_QPA_PLATFORM");
        QVERIFY(!prepareDesktopSession());
        // On a Wayland session with XWayland, the windows go through X11.
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        qputenv("DISPLAY", ":0");
        QVERIFY(prepareDesktopSession());
        QCOMPARE(qgetenv("QT_QPA_PLATFORM"), QByteArray("xcb"));
        // A platform the user chose is kept.
        qputenv("QT_QPA_PLATFORM", "wayland");
        QVERIFY(prepareDesktopSession());
        QCOMPARE(qgetenv("QT_QPA_PLATFORM"), QByteArray("wayland"));
        qputenv("DISPLAY", display);
        qputenv("WAYLAND_DISPLAY", wayland);
        qputenv("QT_QPA_PLATFORM", qpa);
    }
};

QTEST_GUILESS_MAIN(TstDesktopApp)
#include "tst_desktopapp.moc"
