// The hotkey monitor and the paster on a real X desktop (Xvfb, openbox, a GTK field): keys of
// the real keyboard reach the callbacks and the shortcut never reaches the field, keys of
// another program are refused, and a paste lands in the field with the user's clipboard back
// once the field has read it, even when a clipboard manager reads first and the target late,
// and in xterm with the user's PRIMARY selection back as well.
#include "DesktopSession.h"
#include "XClients.h"

#include "data/Settings.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Paster.h"
#include "platform/Platform.h"

#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using test::DesktopSession;

namespace {

// Pastes with restore and sets *done once the keys were posted.
QCoro::Task<void> pasteRestoring(QString text, bool* done) {
    co_await Paster::paste(text, true);
    *done = true;
}

} // namespace

class TstPasterX11 : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }
    int kc(const char* name) { return desktop().keycode(name); }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        AppSettings::shared().setKey(DictationKey::RightOption);
        AppSettings::shared().setAcceptPostedKeys(false);
    }

    // The program's X11 services close their connections while the server still runs.
    void cleanupTestCase() {
        Platform& p = Platform::current();
        p.setKeyboard(nullptr);
        p.setKeyPoster(nullptr);
        p.setClipboard(nullptr);
        p.setWindows(nullptr);
    }

    void dictationKeyAndShortcutsThroughTheRealHook() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        HotkeyMonitor monitor;
        int presses = 0, releases = 0, pastes = 0;
        monitor.onPress = [&] { ++presses; };
        monitor.onRelease = [&] { ++releases; };
        monitor.onPasteLast = [&] { ++pastes; };
        monitor.isDictating = [] { return false; };
        monitor.start();
        QVERIFY(monitor.running());

        QVERIFY(desktop().keyboardPress(kc("Alt_R")));
        QTRY_COMPARE(presses, 1);
        QVERIFY(desktop().keyboardRelease(kc("Alt_R")));
        QTRY_COMPARE(releases, 1);
        // The same key typed by a program: heard, refused.
        QVERIFY(desktop().xdotool({"keydown", "108"}));
        QVERIFY(desktop().xdotool({"keyup", "108"}));
        QTest::qWait(300);
        QCOMPARE(presses, 1);

        // Ctrl+Alt+V is taken from the field; plain letters go through.
        QVERIFY(desktop().keyboardChord({kc("Control_L"), kc("Alt_L"), kc("v")}));
        QTRY_COMPARE(pastes, 1);
        QVERIFY(desktop().keyboardType("ok"));
        QTest::qWait(300);
        QCOMPARE(desktop().closeTarget().value_or("?"), QStringLiteral("ok"));
    }

    void pasteLandsAndTheUserClipboardComesBackAfterTheFieldReadIt() {
        QVERIFY2(desktop().openTarget(), qPrintable(desktop().error()));
        HotkeyMonitor monitor; // the hook gives the paster the modifiers held
        monitor.start();
        QVERIFY(desktop().setClipboard("<b>notes</b>", QStringLiteral("text/html")));
        Clipboard& clipboard = Platform::current().clipboard();
        QTRY_VERIFY(!clipboard.snapshot().isEmpty());
        const QString text = QStringLiteral("Voilà l'été : « ça déménage » — 10 €");
        bool posted = false;
        auto task = pasteRestoring(text, &posted);
        QTRY_VERIFY(posted);
        // Back well before the time-out: the field read the text.
        QTRY_VERIFY_WITH_TIMEOUT(
            desktop().readClipboard(QStringLiteral("text/html")).value_or("") ==
                QByteArray("<b>notes</b>"),
            Paster::kRestoreTimeoutMs - 500);
        QCOMPARE(desktop().closeTarget().value_or("?"), text);
    }

    // A clipboard manager copies the pasted text at once; the target reads it only 400 ms after
    // the keys. The target still gets the pasted text, and the user's clipboard comes back
    // after that.
    void aSlowTargetGetsTheTextDespiteAnEagerClipboardManager() {
        HotkeyMonitor monitor;
        monitor.start();
        test::EagerClipboardManager manager;
        QVERIFY(manager.valid());
        test::PasteTarget target(400);
        QVERIFY(target.show(desktop()));
        QVERIFY(desktop().setClipboard("mes notes"));
        QTRY_VERIFY(manager.copies().contains("mes notes"));

        const QString text = QStringLiteral("Lu tard : « ça arrive » — 10 €");
        bool posted = false;
        auto task = pasteRestoring(text, &posted);
        QTRY_VERIFY(posted);
        QTRY_VERIFY(manager.copies().contains(text.toUtf8()));
        QTRY_VERIFY_WITH_TIMEOUT(target.pasted().has_value(), 3000);
        QCOMPARE(QString::fromUtf8(target.pasted().value_or("?")), text);
        QTRY_COMPARE_WITH_TIMEOUT(desktop().readClipboard().value_or("?"), QByteArray("mes notes"),
                                  Paster::kRestoreTimeoutMs + 1000);
    }

    // xterm pastes PRIMARY with Shift+Insert: the text reaches the shell, and both the user's
    // clipboard and the selection the user had come back.
    void pasteIntoXtermGivesBackThePrimarySelection() {
        HotkeyMonitor monitor;
        monitor.start();
        QTemporaryDir dir;
        const QString out = dir.filePath(QStringLiteral("ligne.txt"));
        QProcess xterm;
        xterm.start(QStringLiteral("xterm"),
                    {QStringLiteral("-T"), QStringLiteral("Terminal"), QStringLiteral("-e"),
                     QStringLiteral("sh"), QStringLiteral("-c"),
                     QStringLiteral("IFS= read -r line; printf '%s' \"$line\" > '%1'").arg(out)});
        QVERIFY(xterm.waitForStarted(5000));
        const auto ending = qScopeGuard([&] {
            xterm.kill();
            xterm.waitForFinished(2000);
        });
        const auto found = desktop().run(QStringLiteral("xdotool"),
                                         {"search", "--sync", "--name", "^Terminal$"}, 10000);
        const qulonglong window = found.out.split('\n').value(0).trimmed().toULongLong();
        QVERIFY2(window, found.err.constData());
        QVERIFY(desktop().activateWindow(window));
        QTest::qWait(300); // xterm takes keys once it has seen its focus
        QVERIFY(desktop().setClipboard("mes notes"));
        QVERIFY(desktop().setClipboard("choix d'avant", {}, QStringLiteral("primary")));

        const QString text = QStringLiteral("echo « déjà vu »");
        bool posted = false;
        auto task = pasteRestoring(text, &posted);
        QTRY_VERIFY(posted);
        QTRY_COMPARE_WITH_TIMEOUT(
            desktop().readClipboard({}, QStringLiteral("primary")).value_or("?"),
            QByteArray("choix d'avant"), Paster::kRestoreTimeoutMs + 1000);
        QCOMPARE(desktop().readClipboard().value_or("?"), QByteArray("mes notes"));
        QVERIFY(desktop().xdotool({"key", "Return"}));
        QVERIFY(DesktopSession::waitUntil([&] { return xterm.state() == QProcess::NotRunning; }));
        QFile typed(out);
        QVERIFY(typed.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(typed.readAll()), text);
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstPasterX11)
#include "tst_paster_x11.moc"
