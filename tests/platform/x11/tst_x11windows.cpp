#include "platform/x11/X11Platform.h"

#include "DesktopSession.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

using namespace ombry;
using test::DesktopSession;

class TstX11Windows : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }

    QString applicationsDir() const {
        return qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/applications");
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        QVERIFY(!qEnvironmentVariableIsEmpty("XDG_DATA_HOME"));
        QDir(applicationsDir()).removeRecursively();
    }

    void frontmostAndActivation() {
        auto windows = x11::makeWindows();
        QVERIFY2(desktop().openTarget(QStringLiteral("Cible")), qPrintable(desktop().error()));
        const qulonglong field = desktop().targetWindow();

        const AppWindow remembered = windows->frontmost().value_or(AppWindow{});
        QCOMPARE(remembered.id, uint64_t(field));
        QCOMPARE(remembered.pid, desktop().targetPid());
        // No desktop file: the window class names it.
        QCOMPARE(QStringList({remembered.windowClass, remembered.appId, remembered.name}),
                 QStringList({"Zenity", "zenity", "Zenity"}));

        // Another window comes in front; activating the remembered one brings it back.
        QVERIFY2(desktop().openTarget(QStringLiteral("Autre")), qPrintable(desktop().error()));
        QVERIFY(desktop().targetWindow() != field);
        QCOMPARE(windows->frontmost().value_or(AppWindow{}).id, uint64_t(desktop().targetWindow()));
        QVERIFY(windows->activate(remembered));
        QTRY_COMPARE(desktop().activeWindow(), field);
        QCOMPARE(windows->frontmost().value_or(AppWindow{}).id, uint64_t(field));

        // A window that is gone cannot be activated.
        AppWindow gone = remembered;
        gone.id = 0x3ffffff0;
        QVERIFY(!windows->activate(gone) && !windows->activate(AppWindow{}));
    }

    void desktopFilesNameTheApplication() {
        auto windows = x11::makeWindows();
        QVERIFY2(desktop().openTarget(QStringLiteral("Saisie")), qPrintable(desktop().error()));
        QCOMPARE(windows->frontmost().value_or(AppWindow{}).appId, QStringLiteral("zenity"));

        // Installed while the program runs: found by its StartupWMClass, named in French.
        QVERIFY(QDir().mkpath(applicationsDir() + QStringLiteral("/tools")));
        QFile file(applicationsDir() + QStringLiteral("/tools/org.example.Saisie.desktop"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=Application\nName=Text entry\n"
                   "Name[fr]=Champ de saisie\nExec=/usr/bin/zenity --entry\n"
                   "StartupWMClass=Zenity\n\n[Desktop Action New]\nName=Autre nom\n");
        file.close();
        // The system tells of it through the main loop.
        QTRY_COMPARE(windows->frontmost().value_or(AppWindow{}).appId,
                     QStringLiteral("tools-org.example.Saisie"));
        const AppWindow front = windows->frontmost().value_or(AppWindow{});
        QCOMPARE(QStringList({front.name, front.windowClass}),
                 QStringList({"Champ de saisie", "Zenity"}));
        QCOMPARE(windows->applicationName(desktop().targetPid()),
                 QStringLiteral("Champ de saisie"));

        QDir(applicationsDir()).removeRecursively();
    }

    void applicationNameOfProcesses() {
        auto windows = x11::makeWindows();
        QCOMPARE(windows->applicationName(getpid()), QStringLiteral("tst_x11windows"));
        for (const int64_t none : {0, -1, 0x3ffffff})
            QCOMPARE(windows->applicationName(none), QString());
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstX11Windows)
#include "tst_x11windows.moc"
