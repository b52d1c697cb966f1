// The accessibility bus of a real desktop: Xvfb, openbox, a private session bus whose
// accessibility bus at-spi2-core launches on demand, a GTK field (zenity) and a Qt field (this
// process's own). What the paster reads from them (selection, editable state, whether a paste
// arrived), how long each question takes, and an application that stops answering.
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

namespace {

// Runs the task and says how long it took, for the journal of the test.
template <class T> T timed(const char* what, QCoro::Task<T> task, qint64* ms = nullptr) {
    QElapsedTimer t;
    t.start();
    T value = test::await(std::move(task));
    if (ms) *ms = t.elapsed();
    qInfo("%s: %lld ms", what, static_cast<long long>(t.elapsed()));
    return value;
}

} // namespace

class TstAtSpiDesktop : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }

    // A Qt field of this process, in front and focused.
    bool showField(QLineEdit& field) {
        field.setWindowTitle(QStringLiteral("Champ Qt"));
        field.resize(400, 40);
        field.show();
        return QTest::qWaitForWindowExposed(&field) && desktop().activateWindow(field.winId()) &&
               DesktopSession::waitUntil([&] { return field.hasFocus(); });
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("pas de bus de session (dbus-daemon absent)");
    }

    // GTK: the selection of the focused entry, its editable state, and a paste that arrives
    // (the check says so) — each question timed.
    void gtkField() {
        QVERIFY2(desktop().openTarget(QStringLiteral("Cible")), qPrintable(desktop().error()));
        QVERIFY(desktop().xdotool({"type", "Bonjour le monde"}));
        QVERIFY(desktop().xdotool({"key", "shift+ctrl+Left"}));
        // The first question also finds the bus and may wait for the application to register.
        std::optional<QString> selected;
        QVERIFY(DesktopSession::waitUntil(
            [&] {
                selected = test::await(Paster::selectedTextViaAX());
                return selected.has_value();
            },
            10000));
        QCOMPARE(*timed("sélection (GTK)", Paster::selectedTextViaAX()), QString("monde"));
        QCOMPARE(timed("modifiable (GTK)", Paster::focusedIsEditable()), std::optional<bool>(true));

        QVERIFY(desktop().xdotool({"key", "End"}));
        bool lost = false;
        test::await(Paster::pasteAndCheck(QStringLiteral(" et été"), true, std::nullopt,
                                          [&lost] { lost = true; }));
        QTest::qWait(1600);
        QVERIFY(!lost);
        QCOMPARE(desktop().closeTarget().value_or(""), QString("Bonjour le monde et été"));
    }

    // Qt: the same questions of a QLineEdit; a read-only one is not editable, and a paste into
    // it does not arrive, which the check reports.
    void qtField() {
        QLineEdit field;
        QVERIFY(showField(field));
        field.setText(QStringLiteral("Salut tout le monde"));
        field.setSelection(6, 4);
        std::optional<QString> selected;
        QVERIFY(DesktopSession::waitUntil(
            [&] {
                selected = test::await(Paster::selectedTextViaAX());
                return selected == QStringLiteral("tout");
            },
            10000));
        qint64 ms = 0;
        QCOMPARE(timed("sélection (Qt)", Paster::selectedTextViaAX(), &ms),
                 std::optional<QString>("tout"));
        QCOMPARE(timed("modifiable (Qt)", Paster::focusedIsEditable()), std::optional<bool>(true));

        field.setReadOnly(true);
        field.deselect();
        QVERIFY(DesktopSession::waitUntil([&] {
            return test::await(Paster::focusedIsEditable()) == std::optional<bool>(false);
        }));
        bool lost = false;
        test::await(Paster::pasteAndCheck(QStringLiteral("perdu"), true, std::nullopt,
                                          [&lost] { lost = true; }));
        QVERIFY(DesktopSession::waitUntil([&] { return lost; }, 3000));
        QCOMPARE(field.text(), QString("Salut tout le monde"));
    }

    // An application that stops answering (SIGSTOP) is an application that says nothing:
    // the question ends within its deadline and the event loop turns meanwhile.
    void applicationThatHangs() {
        QVERIFY2(desktop().openTarget(QStringLiteral("Figée")), qPrintable(desktop().error()));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return test::await(Paster::focusedIsEditable()).has_value(); }, 10000));
        const qint64 pid = desktop().targetPid();
        QVERIFY(pid > 0);
        ::kill(pid_t(pid), SIGSTOP);
        int ticks = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, [&ticks] { ++ticks; });
        ticker.start(10);
        qint64 ms = 0;
        const std::optional<QString> selected =
            timed("sélection (appli figée)", Paster::selectedTextViaAX(), &ms);
        ticker.stop();
        ::kill(pid_t(pid), SIGCONT);
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
