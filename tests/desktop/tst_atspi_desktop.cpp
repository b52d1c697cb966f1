// The accessibility bus of a real desktop: Xvfb, openbox, a private session bus whose
// accessibility bus at-spi2-core launches on demand, a GTK field (zenity) and a Qt field (this
// process's own). What the paster reads from them (selection, editable state, whether a paste
// arrived), and an application that stops answering.
#include "DesktopSession.h"
#include "SessionBus.h"

#include "desktop/Paster.h"
#include "platform/Platform.h"

#include <QElapsedTimer>
#include <QLineEdit>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <unistd.h>

#include "Await.h"

using namespace ombry;
using test::DesktopSession;

class TstAtSpiDesktop : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }

    // The selection the focused element reports, once it is this one: the first question also
    // finds the bus and may wait for the application to register.
    bool selectionComes(const QString& expected) {
        return DesktopSession::waitUntil(
            [&] { return test::await(Paster::selectedTextViaAX()) == expected; }, 10000);
    }
    // Pastes with the check; whether the check said the text was lost, once it had its time.
    bool lostAfterPaste(const QString& text) {
        bool lost = false;
        test::await(Paster::pasteAndCheck(text, true, std::nullopt, [&lost] { lost = true; }));
        return DesktopSession::waitUntil([&] { return lost; }, 3000);
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("pas de bus de session (dbus-daemon absent)");
    }

    // GTK: the selection of the focused entry, its editable state, and a paste that arrives
    // (the check says so).
    void gtkField() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        QVERIFY(desktop().xdotool({"type", "Bonjour le monde"}));
        QVERIFY(desktop().xdotool({"key", "shift+ctrl+Left"}));
        QVERIFY(selectionComes("monde"));
        QCOMPARE(test::await(Paster::focusedIsEditable()), std::optional<bool>(true));
        QVERIFY(desktop().xdotool({"key", "End"}));
        QVERIFY(!lostAfterPaste(" et été"));
        QCOMPARE(desktop().closeTarget().value_or(""), QString("Bonjour le monde et été"));
    }

    // Qt: the same questions of a QLineEdit; a read-only one is not editable, and a paste into
    // it does not arrive, which the check reports.
    void qtField() {
        QLineEdit field(QStringLiteral("Salut tout le monde"));
        field.show();
        QVERIFY(QTest::qWaitForWindowExposed(&field) && desktop().activateWindow(field.winId()));
        QVERIFY(DesktopSession::waitUntil([&] { return field.hasFocus(); }));
        field.setSelection(6, 4);
        QVERIFY(selectionComes("tout"));
        QCOMPARE(test::await(Paster::focusedIsEditable()), std::optional<bool>(true));
        field.setReadOnly(true);
        field.deselect();
        QVERIFY(DesktopSession::waitUntil([&] {
            return test::await(Paster::focusedIsEditable()) == std::optional<bool>(false);
        }));
        QVERIFY(lostAfterPaste("perdu"));
        QCOMPARE(field.text(), QString("Salut tout le monde"));
    }

    // An application that stops answering (SIGSTOP) is an application that says nothing:
    // the question ends within its deadline and the event loop turns meanwhile.
    void applicationThatHangs() {
        QVERIFY2(desktop().openTarget(QStringLiteral("Figée")), qPrintable(desktop().error()));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return test::await(Paster::focusedIsEditable()).has_value(); }, 10000));
        const pid_t pid = pid_t(desktop().targetPid());
        QVERIFY(pid > 0);
        ::kill(pid, SIGSTOP);
        int ticks = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, [&ticks] { ++ticks; });
        ticker.start(10);
        auto question = Paster::selectedTextViaAX(); // timed from its first wait on
        QElapsedTimer t;
        t.start();
        const std::optional<QString> selected = test::await(std::move(question));
        const qint64 ms = t.elapsed();
        ::kill(pid, SIGCONT);
        QVERIFY(!selected);
        QVERIFY2(ms < 2500, qPrintable(QString::number(ms)));
        QVERIFY2(ticks >= ms / 10 / 3, qPrintable(QString::number(ticks)));
        desktop().closeTarget();
    }
};

// The desktop first, then a private session bus and its accessibility bus, then the
// application, with Qt's accessibility on.
int main(int argc, char** argv) {
    static DesktopSession session;
    const bool up = session.start();
    qputenv("QT_QPA_PLATFORM", up ? "xcb" : "offscreen");
    test::SessionBus bus;
    bus.start();
    qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
    int status = 0;
    {
        QApplication app(argc, argv);
        TstAtSpiDesktop test;
        status = QTest::qExec(&test, argc, argv);
        session.endPrograms();
    }
    return status;
}

#include "tst_atspi_desktop.moc"
